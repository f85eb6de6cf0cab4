// Captures, and the other forms in which bytes of the pipe are handed around. docs/tools.md describes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <stdexcept>
#include <string>

#include "oracle/bytes.h"

namespace inspect {

/// What is wrong with an input: "file:line: expected ...".
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Who sent the bytes.
enum class Side { Host, Service };

const char* nameOf(Side side);

/// A piece of what was sent, or a mark, such as "connect" or "disconnect".
struct Chunk {
    std::int64_t at = 0; ///< microseconds
    Side from = Side::Service;
    oracle::Bytes bytes;
    std::string mark;     ///< empty: the bytes count
    std::size_t line = 0; ///< of the input; 0 in raw bytes
};

enum class Form {
    Guess,   ///< by the first byte: '{' begins a capture, '$' raw bytes, anything else hexadecimal text
    Capture, ///< one JSON object a line
    Hex,     ///< hexadecimal text, "> 24 00 22 # the host's", "< ..." the service's
    Raw,
};

/// Reads an input of any size piece by piece.
class CaptureReader {
public:
    struct Options {
        Form form = Form::Guess;
        Side from = Side::Service; ///< of raw bytes, and of hexadecimal text without a direction
        bool follow = false;       ///< wait for more at the end of the input, until the mark "exit"
    };

    /// A longer line is refused: it would not fit the promise of constant memory.
    static constexpr std::size_t kLongestLine = 64U * 1024U * 1024U;

    /// `name` is for messages.
    CaptureReader(std::istream& in, std::string name, const Options& options);

    /// False at the end. Throws InputError.
    bool next(Chunk& chunk);

    /// Whether texts were replaced by the letter x. Known after the first call of `next`.
    bool masked() const { return mMasked; }

    const std::string& name() const { return mName; }

private:
    bool fill();
    bool nextLine(std::string& line);
    bool nextOfCapture(Chunk& chunk);
    bool nextOfHex(Chunk& chunk);
    bool nextOfRaw(Chunk& chunk);
    [[noreturn]] void fail(const std::string& expected) const;

    std::istream& mIn;
    std::string mName;
    Options mOptions;
    std::string mBuffer; ///< what was read and not yet used
    std::size_t mSearched = 0;
    std::size_t mLine = 0;
    bool mMasked = false;
    bool mEnded = false;
};

} // namespace inspect
