// The bytes on the pipe, seen from the service's end: packets with a 9-byte header, payloads of typed
// entries.
//
// Written from the format itself and on purpose without the library's encoder and decoder: a mistake made
// there must not be repeated here, or the two would agree and no test would notice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace standin {

inline constexpr std::uint16_t kNotifyCommand = 34;
inline constexpr std::uint16_t kStopCommand = 8193;
inline constexpr std::uint8_t kMagic = 0x24;
inline constexpr std::size_t kHeaderSize = 9;

inline constexpr std::uint8_t kByteType = 3;
inline constexpr std::uint8_t kIntType = 6;
inline constexpr std::uint8_t kNestedType = 14;
inline constexpr std::uint8_t kStringType = 20;

struct Header {
    std::uint8_t magic = kMagic;
    std::uint16_t command = 0;
    std::uint16_t seq = 0;
    std::uint32_t size = 0;
};

struct Packet {
    Header header;
    std::string payload;
};

// One entry of a payload. `raw` holds the value bytes without a length prefix; a nested entry has its own
// entries decoded beside them.
struct Entry {
    std::string key;
    std::uint8_t type = 0;
    std::string raw;
    std::vector<Entry> nested;
};

// What the type code says about the bytes that follow it.
struct ValueLayout {
    std::size_t lengthWidth = 0; // 0: no length prefix
    std::size_t fixedWidth = 0;  // value bytes when there is no length prefix
    bool known = false;          // false: no value bytes are defined for this code
};

ValueLayout layoutOf(std::uint8_t type);

// Appends the low `width` bytes of `value`, most significant first.
void putNumber(std::string& out, std::uint64_t value, std::size_t width);
std::uint64_t getNumber(std::string_view bytes);

void putHeader(std::string& out, const Header& header);
// Key length (its low 8 bits), key, type code: what every entry begins with.
void putEntryStart(std::string& out, std::string_view key, std::uint8_t type);

struct DecodedEntries {
    std::vector<Entry> entries;
    std::string error; // empty when every byte of the payload belongs to a well-formed entry
};

// Strict: stops at the first thing that a careful sender would not write, and says what it was.
DecodedEntries decodeEntries(std::string_view payload);

// Cuts a byte stream into packets. A wrong magic byte or an announced size beyond `kSaneSize` breaks the
// cutter for good: the stream cannot be trusted any more, `error()` says why.
class PacketCutter {
public:
    static constexpr std::uint32_t kSaneSize = 16U * 1024U * 1024U;

    void feed(std::string_view bytes);
    std::optional<Packet> next();

    const std::string& error() const { return mError; }

    std::size_t pending() const { return mBuffer.size() - mStart; }

private:
    std::string mBuffer;
    std::size_t mStart = 0;
    std::string mError;
};

} // namespace standin
