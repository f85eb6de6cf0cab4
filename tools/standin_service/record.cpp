#include "record.h"

namespace standin {

namespace {

std::string jsonValue(const Entry& entry) {
    if (entry.type == kNestedType) {
        return jsonEntries(entry.nested);
    }
    if (layoutOf(entry.type).lengthWidth != 0) {
        return jsonText(entry.raw);
    }
    const std::uint64_t value = getNumber(entry.raw);
    if (entry.type == kIntType) {
        return std::to_string(static_cast<std::int32_t>(static_cast<std::uint32_t>(value)));
    }
    return std::to_string(value);
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

std::string jsonEntries(const std::vector<Entry>& entries) {
    std::string out = "[";
    for (const Entry& entry : entries) {
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

std::string RecordLine::finish() const {
    return mText + "}\n";
}

RecordLine packetLine(const Packet& packet) {
    const DecodedEntries decoded = decodeEntries(packet.payload);
    RecordLine line("packet");
    line.number("command", packet.header.command)
        .number("seq", packet.header.seq)
        .number("size", packet.header.size)
        .json("entries", jsonEntries(decoded.entries));
    if (!decoded.error.empty()) {
        line.text("malformed", decoded.error);
    }
    return line;
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
    const std::string text = line.finish();
    std::fwrite(text.data(), 1, text.size(), mFile);
    std::fflush(mFile);
}

} // namespace standin
