#include "capture.h"

#include <algorithm>
#include <utility>

#include "oracle/entries.h"
#include "oracle/packets.h"

namespace tap {

namespace {

/// For the line that says that there is no more room.
constexpr std::uint64_t kLastLine = 64;

} // namespace

Capture::Capture(const std::filesystem::path& path, std::uint64_t limit, Report report)
    : mFile(path, std::ios::binary | std::ios::app), mReport(std::move(report)) {
    std::error_code none;
    const std::uintmax_t before = std::filesystem::file_size(path, none);
    const std::uint64_t used = (none ? 0 : before) + kLastLine;
    mLeft = limit > used ? limit - used : 0;
    if (!mFile) {
        mReport("cannot be opened");
        return;
    }
    if (mLeft == 0) {
        mFile.close(); // it says so already
        return;
    }
    write(standin::startLine(true));
    write(standin::RecordLine("connect"));
    mFile.flush();
}

void Capture::carried(standin::From from, const oracle::Bytes& bytes) {
    const std::lock_guard guard(mMutex);
    if (!mFile.is_open()) {
        return;
    }
    Side& side = from == standin::From::Host ? mHost : mService;
    oracle::append(side.waiting, bytes);
    writePackets(side);
    mFile.flush();
}

void Capture::refused(int code) {
    const std::lock_guard guard(mMutex);
    write(standin::RecordLine("refused").number("code", code));
}

void Capture::disconnected(int code) {
    const std::lock_guard guard(mMutex);
    if (std::exchange(mDisconnected, true)) {
        return;
    }
    const auto unfinished = static_cast<std::int64_t>(mService.waiting.size());
    writeRest(mHost);
    writeRest(mService);
    write(standin::RecordLine("disconnect").number("code", code).number("unfinished", unfinished));
    mFile.flush();
}

void Capture::writePackets(Side& side) {
    std::size_t at = 0;
    const auto left = [&] { return side.waiting.size() - at; };
    const auto take = [&](std::size_t count) {
        at += count;
        return oracle::part(side.waiting, at - count, count);
    };
    while (left() != 0) {
        if (side.rest != 0) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(side.rest, left()));
            at += count;
            side.rest -= count;
            write(standin::bytesLine(oracle::Bytes(count, 'x'), side.from));
            continue;
        }
        if (left() < oracle::kHeaderSize) {
            break;
        }
        const std::uint32_t size = oracle::announcedSize(side.waiting, at);
        if (size > kMaxPacket) {
            write(standin::bytesLine(take(oracle::kHeaderSize), side.from));
            side.rest = size;
            continue;
        }
        if (left() < oracle::kHeaderSize + size) {
            break;
        }
        oracle::Bytes whole = take(oracle::kHeaderSize + size);
        for (oracle::Packet& packet : oracle::takePackets(whole)) {
            packet.payload = oracle::masked(packet.payload);
            write(standin::packetLine(packet, side.from));
        }
    }
    side.waiting.erase(side.waiting.begin(), side.waiting.begin() + static_cast<std::ptrdiff_t>(at));
}

void Capture::writeRest(Side& side) {
    if (side.waiting.empty()) {
        return;
    }
    const std::size_t header = std::min(side.waiting.size(), oracle::kHeaderSize);
    std::fill(side.waiting.begin() + static_cast<std::ptrdiff_t>(header), side.waiting.end(),
              std::uint8_t{'x'});
    write(standin::bytesLine(side.waiting, side.from));
    side.waiting.clear();
}

void Capture::write(const standin::RecordLine& line) {
    if (!mFile.is_open()) {
        return;
    }
    std::string text = line.finish(standin::now());
    const bool fits = text.size() <= mLeft;
    if (!fits) {
        text = standin::RecordLine("limit").finish(standin::now());
    }
    mFile << text;
    mLeft -= fits ? text.size() : 0;
    if (!mFile.good()) {
        mReport("cannot be written");
    }
    if (!fits || !mFile.good()) {
        mFile.close();
    }
}

} // namespace tap
