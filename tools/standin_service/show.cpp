#include "show.h"

#include "oracle/commands.h"
#include "oracle/entries.h"
#include "record.h"

namespace standin {

namespace {

constexpr const char* kDim = "\x1b[2m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kCyan = "\x1b[36m";
constexpr const char* kPlain = "\x1b[0m";

std::string described(const oracle::Bytes& payload) {
    const oracle::Decoded decoded = oracle::decode(payload);
    std::string text;
    for (const oracle::Entry& entry : decoded.entries) {
        text += text.empty() ? "" : ", ";
        text += entry.key + " ";
        if (entry.type == oracle::kTypeNested) {
            text += "{" + described(entry.value) + "}";
        } else if (oracle::layoutOf(entry.type).lengthWidth != 0) {
            text += jsonText(oracle::text(entry.value));
        } else if (entry.type == oracle::kTypeInt) {
            text += std::to_string(oracle::intOf(entry.value));
        } else {
            text += std::to_string(oracle::number(entry.value, 0, entry.value.size()));
        }
    }
    if (decoded.fault) {
        text += (text.empty() ? "malformed: " : "; malformed: ") + decoded.fault->reason;
    }
    return text;
}

} // namespace

std::string described(const oracle::Packet& packet) {
    return oracle::nameOf(packet.command) + " #" + std::to_string(packet.sequence) + "  " +
           described(packet.payload);
}

Show::Show(const Options& options) : mColor(options.color) {
    if (!options.file.empty()) {
        mFile = std::fopen(options.file.c_str(), "ab");
        mOwnsFile = mFile != nullptr;
    } else if (options.on) {
        mFile = stdout;
    }
}

Show::~Show() {
    if (mOwnsFile) {
        std::fclose(mFile);
    }
}

void Show::event(std::string_view text, std::size_t line) {
    print(kDim, "  ", text, line);
}

void Show::trouble(std::string_view text, std::size_t line) {
    print(kRed, "!!", text, line);
}

void Show::received(const oracle::Packet& packet) {
    if (mFile != nullptr) {
        print(kCyan, "<-", described(packet), 0);
    }
}

void Show::sent(const oracle::Bytes& bytes, std::size_t line, bool dropped) {
    if (mFile == nullptr) {
        return;
    }
    oracle::PacketCutter cutter;
    cutter.feed(bytes);
    const char* sign = dropped ? "x " : "->";
    const char* color = dropped ? kRed : kGreen;
    while (const auto packet = cutter.next()) {
        print(color, sign, described(*packet), line);
    }
    if (cutter.pending() != 0) {
        print(color, sign, std::to_string(cutter.pending()) + " bytes that are no whole packet", line);
    }
}

void Show::print(const char* color, const char* sign, std::string_view text, std::size_t line) {
    if (mFile == nullptr) {
        return;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    const std::string from = line == 0 ? std::string() : "  (line " + std::to_string(line) + ")";
    std::fprintf(mFile, "%s%9.3f s  %s  %.*s%s%s\n", mColor ? color : "", seconds, sign,
                 static_cast<int>(text.size()), text.data(), from.c_str(), mColor ? kPlain : "");
    std::fflush(mFile);
}

} // namespace standin
