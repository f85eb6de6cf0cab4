#include "entries_json.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "items.h"
#include "oracle/entries.h"

namespace inspect {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using oracle::Bytes;

constexpr std::size_t kLongestKey = 255;

std::string charactersOf(const Bytes& bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const std::uint8_t byte : bytes) {
        if (byte < 0x80) {
            text += static_cast<char>(byte);
        } else {
            text += static_cast<char>(0xC0U | byte >> 6U);
            text += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return text;
}

// nlohmann::json has checked that it is UTF-8.
Bytes bytesOfCharacters(const std::string& text) {
    Bytes bytes;
    bytes.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = static_cast<std::uint8_t>(text[at]);
        if (byte > 0xC3) {
            throw std::invalid_argument(R"(keys and texts of characters up to \u00ff, one a byte)");
        }
        if (byte >= 0x80) {
            byte = (byte & 0x03U) << 6U | (static_cast<std::uint8_t>(text[++at]) & 0x3FU);
        }
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    return bytes;
}

ordered_json listOf(const Bytes& payload, std::size_t depth);

ordered_json valueOf(const oracle::Entry& entry, std::size_t depth) {
    if (entry.type == oracle::kTypeNested && depth < kDeepest && !oracle::decode(entry.value).fault) {
        return listOf(entry.value, depth + 1);
    }
    if (oracle::layoutOf(entry.type).lengthWidth != 0) {
        return charactersOf(entry.value);
    }
    if (entry.type == oracle::kTypeInt) {
        return oracle::intOf(entry.value);
    }
    return oracle::number(entry.value, 0, entry.value.size());
}

ordered_json listOf(const Bytes& payload, std::size_t depth) {
    ordered_json list = ordered_json::array();
    for (const oracle::Entry& entry : oracle::decode(payload).entries) {
        list.push_back({{"key", charactersOf(oracle::bytesOf(entry.key))},
                        {"type", entry.type},
                        {"value", valueOf(entry, depth)}});
    }
    return list;
}

Bytes bytesOfList(const json& entries, std::size_t depth);

Bytes bytesOfNumber(const json& value, unsigned width) {
    const unsigned unused = 64 - 8 * width;
    const bool fits = value.is_number_unsigned()
                          ? value.get<std::uint64_t>() <= UINT64_MAX >> unused
                          : value.is_number_integer() && value.get<std::int64_t>() >= INT64_MIN >> unused;
    if (!fits) {
        throw std::invalid_argument(fmt::format("a number of {} bytes", width));
    }
    return oracle::bigEndian(static_cast<std::uint64_t>(value.get<std::int64_t>()), width);
}

Bytes bytesOfValue(const json& value, std::uint8_t type, std::size_t depth) {
    const oracle::Layout layout = oracle::layoutOf(type);
    if (!layout.known) {
        throw std::invalid_argument(fmt::format("a type that has a value, not {}", type));
    }
    if (layout.lengthWidth == 0) {
        return bytesOfNumber(value, layout.fixedWidth);
    }
    if (!value.is_string() && type != oracle::kTypeNested) {
        throw std::invalid_argument(fmt::format("a text as the value of type {}", type));
    }
    Bytes bytes =
        value.is_string() ? bytesOfCharacters(value.get<std::string>()) : bytesOfList(value, depth + 1);
    if (layout.lengthWidth == 2 && bytes.size() > UINT16_MAX) {
        throw std::invalid_argument(fmt::format("a value of at most {} bytes", UINT16_MAX));
    }
    return bytes;
}

Bytes bytesOfList(const json& entries, std::size_t depth) {
    if (!entries.is_array() || depth > kDeepest) {
        throw std::invalid_argument(fmt::format("a list of entries, nested at most {} deep", kDeepest));
    }
    Bytes payload;
    for (const json& one : entries) {
        const bool isEntry = one.is_object() && one.contains("key") && one["key"].is_string() &&
                             one.contains("value") && one.contains("type") &&
                             one["type"].is_number_unsigned() && one["type"] <= UINT8_MAX;
        if (!isEntry) {
            throw std::invalid_argument(R"(an entry: "key", "type" from 0 to 255, "value")");
        }
        oracle::Entry entry;
        entry.key = oracle::text(bytesOfCharacters(one["key"].get<std::string>()));
        if (entry.key.size() > kLongestKey) {
            throw std::invalid_argument(fmt::format("a key of at most {} bytes", kLongestKey));
        }
        entry.type = one["type"].get<std::uint8_t>();
        entry.value = bytesOfValue(one["value"], entry.type, depth);
        oracle::append(payload, oracle::encode(entry));
    }
    return payload;
}

} // namespace

ordered_json entriesJson(const Bytes& payload) {
    return listOf(payload, 0);
}

Bytes payloadOf(const json& entries) {
    return bytesOfList(entries, 0);
}

} // namespace inspect
