#include "service_record.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

std::string valueOf(const json& value) {
    std::string text;
    if (!value.is_array()) {
        return value.dump(-1, ' ', false, json::error_handler_t::replace);
    }
    for (const json& entry : value) {
        text += (text.empty() ? "" : ", ") + entry.at("key").get<std::string>() + " " +
                valueOf(entry.at("value"));
    }
    return "{" + text + "}";
}

Mark packetMark(const json& line) {
    constexpr int kNotify = 34;
    const int command = line.at("command").get<int>();
    Mark mark;
    mark.lane = line.at("from") == "host" ? Lane::ToService : Lane::ToHost;
    mark.text = "#" + std::to_string(line.at("seq").get<int>());
    if (command != kNotify) {
        mark.text += " command " + std::to_string(command);
    }
    for (const json& entry : line.at("entries")) {
        const std::string key = entry.at("key").get<std::string>();
        mark.kind += " " + key;
        mark.text += "  " + key + " " + valueOf(entry.at("value"));
    }
    if (line.contains("malformed")) {
        mark.text += "  malformed: " + line.at("malformed").get<std::string>();
    }
    mark.kind = (mark.lane == Lane::ToService ? "to the service:" : "to the library:") + mark.kind;
    return mark;
}

Mark serviceMark(const json& line) {
    const std::string event = line.at("event").get<std::string>();
    if (event == "packet") {
        return packetMark(line);
    }
    Mark mark{0, Lane::Service, event, {}};
    if (event == "bytes") {
        mark.lane = Lane::ToHost;
        mark.text =
            std::to_string(line.at("bytes").get<std::string>().size() / 2) + " bytes that are no packet";
        mark.kind = "bytes that are no packet";
    }
    for (const char* name : {"text", "reason", "code"}) {
        if (line.contains(name)) {
            mark.text += " " + valueOf(line.at(name));
        }
    }
    return mark;
}

} // namespace

std::vector<Mark> serviceMarks(const std::filesystem::path& record) {
    std::vector<Mark> marks;
    std::ifstream file(record);
    for (std::string text; std::getline(file, text);) {
        const json line = json::parse(text, nullptr, false);
        if (line.is_discarded()) {
            break; // the line that was being written when the service was killed
        }
        marks.push_back(serviceMark(line));
        marks.back().at = line.at("at").get<std::int64_t>();
    }
    return marks;
}
