#pragma once

#include "oracle/bytes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace oracle {

struct Entry {
    std::size_t typeOffset = 0; ///< where the type byte stands in the payload
    std::uint8_t type = 0;
    Bytes value; ///< without the length in front of it
};

/// By key; of entries with the same key, the last one.
using Entries = std::map<std::string, Entry>;

/// The entries that are wholly there, up to the first one that is not.
Entries entriesOf(const Bytes& payload);

/// The value of an entry of just that type; nothing for a key that is not there or has another type.
std::optional<std::uint8_t> byteOf(const Entries& entries, const std::string& key);
std::optional<std::int32_t> intOf(const Entries& entries, const std::string& key);
std::optional<std::string> textOf(const Entries& entries, const std::string& key);

Bytes encodeInt(const std::string& key, std::uint32_t value);
Bytes encodeText(const std::string& key, const std::string& value);
Bytes encodeNested(const std::string& key, const Bytes& inner);

} // namespace oracle
