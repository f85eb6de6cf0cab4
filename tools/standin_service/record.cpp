#include "record.h"

#include <chrono>

#include <uv.h>

namespace standin {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string jsonValue(const oracle::Entry& entry) {
    const bool isList = entry.type == oracle::kTypeNested && !oracle::decode(entry.value).fault;
    if (isList) {
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

const char* nameOf(From from) {
    return from == From::Host ? "host" : "service";
}

std::string hexOf(const oracle::Bytes& bytes) {
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        hex.push_back(kHexDigits[byte >> 4U]);
        hex.push_back(kHexDigits[byte & 0x0FU]);
    }
    return hex;
}

} // namespace

std::string jsonText(std::string_view bytes) {
    std::string out = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (byte < 0x20 || byte > 0x7E) {
            out.append("\\u00");
            out.push_back(kHexDigits[byte >> 4U]);
            out.push_back(kHexDigits[byte & 0x0FU]);
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

RecordLine packetLine(const oracle::Packet& packet, From from) {
    const oracle::Decoded decoded = oracle::decode(packet.payload);
    RecordLine line("packet");
    line.text("from", nameOf(from))
        .number("command", packet.command)
        .number("seq", packet.sequence)
        .number("size", static_cast<std::int64_t>(packet.payload.size()))
        .json("entries", jsonEntries(decoded.entries));
    if (decoded.fault) {
        line.text("rest",
                  hexOf(oracle::part(packet.payload, decoded.end, packet.payload.size() - decoded.end)))
            .text("malformed", decoded.fault->reason);
    }
    if (packet.magic != oracle::kMagic) {
        line.number("magic", packet.magic);
    }
    return line;
}

RecordLine startLine(bool masked) {
    return RecordLine("start")
        .number("qupc-capture", 1)
        .json("masked", masked ? "true" : "false")
        .number("pid", uv_os_getpid());
}

RecordLine bytesLine(const oracle::Bytes& bytes, From from) {
    return RecordLine("bytes").text("from", nameOf(from)).text("bytes", hexOf(bytes));
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
