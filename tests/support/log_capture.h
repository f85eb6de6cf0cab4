// The lines that the library writes to the standard output as long as logging has not been initialised.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "support/output_capture.h"

namespace support {

struct LogLine {
    char letter = ' '; ///< D, I, W or E
    std::string tag;
    std::string function; ///< the first part of the bracket that messages begin with
    int line = 0;         ///< the second one
    std::string text;     ///< what follows the bracket

    /// The line number follows the source and says nothing.
    friend bool operator==(const LogLine& a, const LogLine& b) {
        return a.letter == b.letter && a.tag == b.tag && a.function == b.function && a.text == b.text;
    }
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// Captures from its construction until lines() is called. One at a time.
class LogCapture {
public:
    /// Ends the capture.
    std::vector<LogLine> lines();
    /// The same, of one tag.
    std::vector<LogLine> lines(const std::string& tag);
    /// The same, each as "level letter tag: message", with "line" for the source line's number.
    std::vector<std::string> texts();

private:
    OutputCapture mOutput;
};

/// A line whose message does not have the bracket gets an empty function and the whole message as its text.
std::vector<LogLine> parseLogLines(const std::string& output);

} // namespace support
