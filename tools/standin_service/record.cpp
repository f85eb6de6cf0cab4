#include "record.h"

#include <chrono>

namespace standin {

namespace {

std::string jsonValue(const oracle::Entry& entry) {
    if (entry.type == oracle::kTypeNested) {
        return jsonEntries(oracle::decode(entry.value).entries);
    }
    if (oracle::layoutOf(entry.type).lengthWidth != 0) {
        return jsonText(oracle::text(entry.value));
    }
    if (entry.type == oracle::kTypeInt) {
        return std::to_string(oracle::intOf(entry.value));
    }
    return std::to_string(oracle::number(entry.value, 0, entry.value.size()));
}

// What is wrong with a payload, nested ones included; empty when nothing is.
std::string faultOf(const oracle::Bytes& payload) {
    const oracle::Decoded decoded = oracle::decode(payload);
    for (const oracle::Entry& entry : decoded.entries) {
        const std::string inner = entry.type == oracle::kTypeNested ? faultOf(entry.value) : std::string();
        if (!inner.empty()) {
            return "inside \"" + entry.key + "\": " + inner;
        }
    }
    return decoded.fault ? decoded.fault->reason : std::string();
}

} // namespace

std::string jsonText(std::string_view bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (byte < 0x20 || byte > 0x7E) {
            out.append("\\u00");
            out.push_back(kHex[byte >> 4U]);
            out.push_back(kHex[byte & 0x0FU]);
        } else {
            out.push_back(c);
        }
    }
    out.push_back('"');
    return out;
}

std::string jsonEntries(const std::vector<oracle::Entry>& entries) {
    std::string out = "[";
    for (const oracle::Entry& entry : entries) {
        if (out.size() > 1) {
            out.push_back(',');
        }
        out.append("{\"key\":").append(jsonText(entry.key));
        out.append(",\"type\":").append(std::to_string(entry.type));
        out.append(",\"value\":").append(jsonValue(entry)).append("}");
    }
    return out + "]";
}

RecordLine::RecordLine(std::string_view event) : mText("{\"event\":" + jsonText(event)) {}

RecordLine& RecordLine::number(std::string_view name, std::int64_t value) {
    return json(name, std::to_string(value));
}

RecordLine& RecordLine::text(std::string_view name, std::string_view value) {
    return json(name, jsonText(value));
}

RecordLine& RecordLine::json(std::string_view name, std::string_view json) {
    mText.append(",").append(jsonText(name)).append(":").append(json);
    return *this;
}

std::string RecordLine::finish(std::int64_t at) const {
    return mText + (at == 0 ? std::string() : ",\"at\":" + std::to_string(at)) + "}\n";
}

RecordLine packetLine(const oracle::Packet& packet) {
    RecordLine line("packet");
    line.number("command", packet.command)
        .number("seq", packet.sequence)
        .number("size", static_cast<std::int64_t>(packet.payload.size()))
        .json("entries", jsonEntries(oracle::decode(packet.payload).entries));
    const std::string fault = faultOf(packet.payload);
    if (!fault.empty()) {
        line.text("malformed", fault);
    }
    return line;
}

std::int64_t now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

Record::Record(const std::string& path) {
    if (!path.empty()) {
        mFile = std::fopen(path.c_str(), "ab");
    }
}

Record::~Record() {
    if (mFile != nullptr) {
        std::fclose(mFile);
    }
}

void Record::write(const RecordLine& line) {
    if (mFile == nullptr) {
        return;
    }
    const std::string text = line.finish(now());
    std::fwrite(text.data(), 1, text.size(), mFile);
    std::fflush(mFile);
}

} // namespace standin
