#pragma once

#include "oracle/bytes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace oracle {

inline constexpr std::uint8_t kTypeByte = 3;
inline constexpr std::uint8_t kTypeInt = 6;
inline constexpr std::uint8_t kTypeNested = 14;
inline constexpr std::uint8_t kTypeText = 20;

/// What a type code says about the bytes after it: a length before the value, or the value's own width.
struct Layout {
    unsigned lengthWidth = 0; ///< 0: no length
    unsigned fixedWidth = 0;
    bool known = false; ///< false: the code has no value
};

Layout layoutOf(std::uint8_t type);

struct Entry {
    std::string key;
    std::uint8_t type = 0;
    Bytes value; ///< without the length in front of it
    /// The offset of the type byte in the payload.
    std::size_t typeOffset = 0;
    /// Where the value begins there, after its length.
    std::size_t valueOffset = 0;

    friend bool operator==(const Entry& a, const Entry& b) {
        return a.key == b.key && a.type == b.type && a.value == b.value;
    }
};

/// Where a payload stops being a list of entries, and why.
struct Fault {
    std::size_t offset = 0;
    std::string reason;

    friend bool operator==(const Fault&, const Fault&) = default;
};

/// Reads a payload from front to end.
class EntryReader {
public:
    explicit EntryReader(const Bytes& payload) : mPayload(payload) {}

    /// False at the end and at the first entry that is not wholly there; `fault` distinguishes the two. An entry of a type
    /// without a value ends after its type byte.
    bool next(Entry& entry);

    /// Where the next entry begins, or the one that is not wholly there.
    std::size_t offset() const { return mAt; }

    std::optional<Fault> fault;

private:
    const Bytes& mPayload;
    std::size_t mAt = 0;
};

struct Decoded {
    std::vector<Entry> entries; ///< those before the fault
    std::optional<Fault> fault;
    std::size_t end = 0; ///< of the last of the entries
};

/// Strict: a type without a value is a fault too, no careful sender writes one.
Decoded decode(const Bytes& payload);

/// By key; of entries with the same key, the last one.
using Entries = std::map<std::string, Entry>;

/// The entries that are wholly there, up to the first one that is not; those of types without a value are passed over.
Entries entriesOf(const Bytes& payload);

/// The value of an entry of just that type; nothing for a key that is not there or has another type.
std::optional<std::uint8_t> byteOf(const Entries& entries, const std::string& key);
std::optional<std::int32_t> intOf(const Entries& entries, const std::string& key);
std::optional<std::string> textOf(const Entries& entries, const std::string& key);

/// The value of a 32-bit entry, as it is written.
std::int32_t intOf(const Bytes& value);

/// What every entry begins with; of a key's length only the low 8 bits are written.
Bytes encodeStart(const std::string& key, std::uint8_t type);
/// An entry with a raw value: the caller supplies any length before it.
Bytes encodeRaw(const std::string& key, std::uint8_t type, const Bytes& value);
/// An entry with the length, where the type has one, put in front of the value.
Bytes encode(const Entry& entry);
/// The low 32 bits of the value.
Bytes encodeInt(const std::string& key, std::int64_t value);
Bytes encodeText(const std::string& key, const std::string& value);
Bytes encodeNested(const std::string& key, const Bytes& inner);

/// The same payload with every text in it made of the letter x; sizes, keys, types and numbers stay. Of a payload that is
/// no list of entries to its end, the rest is masked too.
Bytes masked(const Bytes& payload);

} // namespace oracle
