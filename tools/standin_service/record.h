// What the service saw, as one JSON object a line, flushed line by line so that a killed service loses
// nothing.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "oracle/entries.h"
#include "oracle/packets.h"

namespace standin {

// JSON text of a byte string. Bytes outside printable ASCII are written as \u00XX, one escape a byte, so that
// any bytes survive the round trip whatever their encoding.
std::string jsonText(std::string_view bytes);
std::string jsonEntries(const std::vector<oracle::Entry>& entries);

// One line under construction: {"event":"...", ...}.
class RecordLine {
public:
    explicit RecordLine(std::string_view event);

    RecordLine& number(std::string_view name, std::int64_t value);
    RecordLine& text(std::string_view name, std::string_view value);
    // `json` is already valid JSON.
    RecordLine& json(std::string_view name, std::string_view json);
    // `at` is now(); left out when 0.
    std::string finish(std::int64_t at = 0) const;

private:
    std::string mText;
};

enum class From { Host, Service };

// The first line of a capture. `masked`: texts may be written as so many letters x.
RecordLine startLine(bool masked);
// One packet, with every byte of it: its entries, and from the first one that is malformed on the rest in hexadecimal.
RecordLine packetLine(const oracle::Packet& packet, From from);
// Bytes that are no whole packet.
RecordLine bytesLine(const oracle::Bytes& bytes, From from);

// Microseconds since 1970: what everything that this computer records of one session can be ordered by.
std::int64_t now();

// Appends to the file: several runs of the service, one after another, may share one record. Without a path
// nothing is written.
class Record {
public:
    explicit Record(const std::string& path);
    ~Record();
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    void write(const RecordLine& line);

private:
    std::FILE* mFile = nullptr;
};

} // namespace standin
