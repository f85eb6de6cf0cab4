#include "mask.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace bundle {

namespace {

using nlohmann::ordered_json;

/// As many letters as the text has bytes on the pipe: in a capture each of those is one character.
std::string letters(const std::string& text) {
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
    return std::string(
        text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continues)), 'x');
}

void maskEntries(ordered_json& entries) {
    for (ordered_json& entry : entries) {
        ordered_json& value = entry["value"];
        if (value.is_string()) {
            value = letters(value.get<std::string>());
        } else if (value.is_array()) {
            maskEntries(value);
        }
    }
}

void maskHex(ordered_json& line, const char* name) {
    if (line.contains(name) && line[name].is_string()) {
        std::string hex;
        for (std::size_t at = 0; at + 1 < line[name].get_ref<const std::string&>().size(); at += 2) {
            hex += "78";
        }
        line[name] = hex;
    }
}

} // namespace

std::string maskedLine(const std::string& text) {
    ordered_json line = ordered_json::parse(text, nullptr, false);
    if (!line.is_object() || !line.contains("event")) {
        return {};
    }
    if (line.contains("entries")) {
        maskEntries(line["entries"]);
    }
    maskHex(line, "rest");
    maskHex(line, "bytes");
    if (line.contains("masked")) {
        line["masked"] = true;
    }
    return line.dump(-1, ' ', true) + "\n";
}

} // namespace bundle
