#include "capture_line.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "entries_json.h"
#include "hex.h"
#include "oracle/commands.h"
#include "oracle/packets.h"

namespace inspect {

namespace {

using nlohmann::json;

nlohmann::json parsed(const std::string& line) {
    json object;
    try {
        object = json::parse(line);
    } catch (const json::parse_error& error) {
        throw std::invalid_argument(fmt::format("a JSON object, which ends at column {}", error.byte));
    }
    if (!object.is_object()) {
        throw std::invalid_argument("a JSON object");
    }
    return object;
}

std::string textIn(const json& object, const char* name) {
    const auto place = object.find(name);
    if (place == object.end()) {
        return "";
    }
    if (!place->is_string()) {
        throw std::invalid_argument(fmt::format("\"{}\" to be a text", name));
    }
    return place->get<std::string>();
}

std::int64_t numberIn(const json& object, const char* name, std::int64_t otherwise, std::int64_t least,
                      std::int64_t most) {
    const auto place = object.find(name);
    if (place == object.end()) {
        return otherwise;
    }
    const bool fits = place->is_number_integer() &&
                      !(place->is_number_unsigned() && place->get<std::uint64_t>() > INT64_MAX);
    const std::int64_t number = fits ? place->get<std::int64_t>() : 0;
    if (!fits || number < least || number > most) {
        throw std::invalid_argument(fmt::format("\"{}\" to be a number from {} to {}", name, least, most));
    }
    return number;
}

Side sideIn(const json& object) {
    const std::string from = textIn(object, "from");
    if (from != "host" && from != "service") {
        throw std::invalid_argument("\"from\" to be \"host\" or \"service\"");
    }
    return from == "host" ? Side::Host : Side::Service;
}

std::uint16_t commandIn(const json& object) {
    const json& command = object.at("command");
    if (!command.is_string()) {
        return static_cast<std::uint16_t>(numberIn(object, "command", 0, 0, UINT16_MAX));
    }
    const std::optional<std::uint16_t> number = oracle::commandOf(command.get<std::string>());
    if (!number) {
        throw std::invalid_argument("\"command\" to be the name of a command or its number");
    }
    return *number;
}

oracle::Bytes packetIn(const json& object) {
    const auto entries = object.find("entries");
    const oracle::Bytes payload =
        oracle::join({entries != object.end() ? payloadOf(*entries) : oracle::Bytes(),
                      bytesOfHex(textIn(object, "rest"))});
    const auto sequence = static_cast<std::uint16_t>(numberIn(object, "seq", 0, 0, UINT16_MAX));
    const auto magic = static_cast<std::uint8_t>(numberIn(object, "magic", oracle::kMagic, 0, UINT8_MAX));
    return oracle::encodePacket(commandIn(object), sequence, payload, magic);
}

} // namespace

CaptureLine readCaptureLine(const std::string& line) {
    const json object = parsed(line);
    CaptureLine said;
    if (object.contains("qupc-capture")) {
        numberIn(object, "qupc-capture", 1, 1, 1);
        said.isHead = true;
        said.masked = object.contains("masked") && object.at("masked") == true;
        return said;
    }
    Chunk& chunk = said.chunk;
    chunk.at = numberIn(object, "at", 0, INT64_MIN, INT64_MAX);
    if (object.contains("bytes") || object.contains("command")) {
        chunk.from = sideIn(object);
        chunk.bytes = object.contains("bytes") ? bytesOfHex(textIn(object, "bytes")) : packetIn(object);
        return said;
    }
    chunk.mark = textIn(object, "event");
    if (chunk.mark.empty()) {
        throw std::invalid_argument("\"bytes\", \"command\" or \"event\"");
    }
    return said;
}

std::string captureHead(bool masked) {
    return fmt::format("{{\"event\":\"start\",\"qupc-capture\":1,\"masked\":{}}}\n", masked);
}

std::string captureLine(const Chunk& chunk) {
    if (!chunk.mark.empty()) {
        return fmt::format("{{\"event\":{},\"at\":{}}}\n", json(chunk.mark).dump(), chunk.at);
    }
    return fmt::format("{{\"event\":\"bytes\",\"from\":\"{}\",\"bytes\":\"{}\",\"at\":{}}}\n",
                       nameOf(chunk.from), hexOf(chunk.bytes), chunk.at);
}

} // namespace inspect
