#include "views.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture_line.h"
#include "entries_json.h"
#include "hex.h"
#include "oracle/commands.h"
#include "record.h"

namespace inspect {

namespace {

using oracle::Bytes;

constexpr std::size_t kShownBytes = 16;
constexpr std::size_t kShownText = 60;
constexpr std::size_t kHexRow = 16;
constexpr const char* kMargin = "            ";

/// The first of them.
std::string someOf(const Bytes& bytes) {
    const std::size_t count = std::min(bytes.size(), kShownBytes);
    return hexOf(oracle::part(bytes, 0, count), " ") + (count < bytes.size() ? " ..." : "");
}

std::string valueOf(const oracle::Entry& entry) {
    if (oracle::layoutOf(entry.type).lengthWidth == 0) {
        return entry.type == oracle::kTypeInt
                   ? std::to_string(oracle::intOf(entry.value))
                   : std::to_string(oracle::number(entry.value, 0, entry.value.size()));
    }
    const std::string text = oracle::text(entry.value);
    return text.size() <= kShownText
               ? standin::jsonText(text)
               : fmt::format("{}... ({} bytes)", standin::jsonText(text.substr(0, kShownText)), text.size());
}

/// On one line, whatever is in it.
std::string plain(const std::string& text) {
    const std::string quoted = standin::jsonText(text);
    return text.empty() ? quoted : quoted.substr(1, quoted.size() - 2);
}

std::string faultOf(const char* where, std::uint64_t offset, const std::string& reason, const Bytes& rest) {
    return fmt::format("!! byte {}{}: {}{}{}\n", offset, where, reason, rest.empty() ? "" : ": ",
                       someOf(rest));
}

std::string lineOf(const Row& row, bool wasOpened) {
    const std::string margin = kMargin + std::string(2 * row.depth, ' ');
    if (row.fault) {
        return margin + faultOf(wasOpened ? " of the opened payload" : "", row.fault->offset,
                                row.fault->reason, row.rest);
    }
    const std::string key = plain(row.entry.key);
    if (row.isList) {
        return fmt::format("{}{}  (nested, {} bytes)\n", margin, key, row.entry.value.size());
    }
    const bool isUsual = row.entry.type == oracle::kTypeInt || row.entry.type == oracle::kTypeText;
    return fmt::format("{}{:<18} {}{}\n", margin, key, valueOf(row.entry),
                       isUsual ? "" : fmt::format("  (type {})", row.entry.type));
}

std::string hexRows(const Bytes& bytes) {
    std::string rows;
    for (std::size_t at = 0; at < bytes.size(); at += kHexRow) {
        const Bytes row = oracle::part(bytes, at, std::min(kHexRow, bytes.size() - at));
        std::string letters;
        for (const std::uint8_t byte : row) {
            letters += byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
        }
        rows += fmt::format("{}{:06x}  {:<47}  {}\n", kMargin, at, hexOf(row, " "), letters);
    }
    return rows;
}

nlohmann::ordered_json packetJson(const Item& item) {
    const oracle::Packet& packet = item.packet;
    nlohmann::ordered_json json = {{"command", packet.command},
                                   {"name", oracle::nameOf(packet.command)},
                                   {"seq", packet.sequence},
                                   {"size", item.bytes.size() - oracle::kHeaderSize}};
    if (packet.magic != oracle::kMagic) {
        json["magic"] = packet.magic;
    }
    json["entries"] = entriesJson(packet.payload);
    const std::size_t end = oracle::decode(packet.payload).end;
    if (end < packet.payload.size()) {
        json["rest"] = hexOf(oracle::part(packet.payload, end, packet.payload.size() - end));
    }
    return json;
}

} // namespace

std::string summaryOf(const Item& item) {
    if (!item.isPacket) {
        return "no packet: " + item.fault->reason;
    }
    std::string text;
    std::size_t depth = 0;
    for (const Row& row : rowsOf(item)) {
        text.append(depth - std::min(depth, row.depth), '}');
        text += text.empty() || text.back() == '{' ? "" : ", ";
        text += row.fault ? "malformed: " + row.fault->reason
                          : plain(row.entry.key) + " " + (row.isList ? "{" : valueOf(row.entry));
        depth = row.depth + (row.isList ? 1 : 0);
    }
    text.append(depth, '}');
    return fmt::format("{} #{}{}{}", oracle::nameOf(item.packet.command), item.packet.sequence,
                       text.empty() ? "" : "  ", text);
}

std::string Table::head(bool masked) {
    return fmt::format("{:>10}  {:<7}  {:<24} {:>5} {:>8}{}\n", "seconds", "from", "command", "seq", "bytes",
                       masked ? "   (texts are masked)" : "");
}

std::string Table::of(const Item& item) {
    mFirst = mFirst ? mFirst : item.at;
    const std::string start =
        fmt::format("{:>10.6f}  ", (static_cast<double>(item.at) - static_cast<double>(*mFirst)) / 1e6);
    if (!item.mark.empty()) {
        return fmt::format("{}-- {}\n", start, plain(item.mark));
    }
    const oracle::Packet& packet = item.packet;
    std::string rows = fmt::format("{}{:<7}  {:<24} {:>5} {:>8}{}\n", start, nameOf(item.from),
                                   item.isPacket ? oracle::nameOf(packet.command) : "no packet",
                                   item.isPacket ? std::to_string(packet.sequence) : "", item.bytes.size(),
                                   item.wasOpened ? "  (opened)" : "");
    if (item.fault) {
        rows += kMargin + faultOf(item.isPacket ? "" : " of the stream",
                                  (item.isPacket ? 0 : item.offset) + item.fault->offset, item.fault->reason,
                                  item.bytes);
    }
    for (const Row& row : rowsOf(item)) {
        rows += lineOf(row, item.wasOpened);
    }
    return rows + (mHex ? hexRows(item.bytes) : "");
}

std::string JsonLines::head(bool masked) {
    return captureHead(masked);
}

std::string JsonLines::of(const Item& item) {
    nlohmann::ordered_json json;
    if (!item.mark.empty()) {
        json["event"] = item.mark;
    } else {
        json = {{"event", item.isPacket ? "packet" : "bytes"}, {"from", nameOf(item.from)}};
    }
    if (item.isPacket) {
        json.update(packetJson(item));
    }
    if (item.mark.empty() && (!item.isPacket || item.wasOpened)) {
        json["bytes"] = hexOf(item.bytes);
    }
    if (const std::optional<oracle::Fault> fault = firstFault(item)) {
        json["malformed"] = fmt::format("byte {}: {}", fault->offset, fault->reason);
    }
    json["at"] = item.at;
    return json.dump(-1, ' ', true) + "\n";
}

std::string Mermaid::head(bool /*masked*/) {
    return "sequenceDiagram\n    participant Host\n    participant Service\n";
}

std::string Mermaid::of(const Item& item) {
    std::string text;
    for (const char c : item.mark.empty() ? summaryOf(item) : plain(item.mark)) {
        // What would begin an entity, or end the line.
        text += c == '#' ? "#35;" : c == ';' ? "#59;" : std::string(1, c);
    }
    const char* arrow = item.from == Side::Host ? "Host->>Service" : "Service->>Host";
    return fmt::format("    {}: {}\n", item.mark.empty() ? arrow : "Note over Host,Service", text);
}

} // namespace inspect
