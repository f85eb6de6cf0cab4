// What holds for any stream of packets: wherever the pipe cuts it, the same packets come out.

#include "oracle/packets.h"
#include "protocol/safety_data_deal.h"
#include "support/effort.h"
#include "support/log_capture.h"
#include "support/protocol/protection_support.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <utility>
#include <vector>

using namespace support;
using oracle::Bytes;

namespace {

constexpr int kCutsOfEachStream = 6;

/// Empty and small ones mostly; now and then one that fills several reads.
Bytes randomPayload(std::mt19937& random) {
    constexpr std::size_t kLimits[] = {1, 10, 60, 300, 70000};
    const std::size_t kind = random() % 20;
    return randomBytes(random, random() % kLimits[kind == 0 ? 4 : kind % 4]);
}

std::vector<oracle::Packet> randomPackets(std::mt19937& random) {
    std::vector<oracle::Packet> packets(random() % 20);
    for (oracle::Packet& packet : packets) {
        packet.magic = random() % 4 == 0 ? static_cast<std::uint8_t>(random()) : 0x24;
        packet.command = random() % 2 == 0 ? 34 : static_cast<std::uint16_t>(random());
        packet.sequence = static_cast<std::uint16_t>(random());
        packet.payload = randomPayload(random);
    }
    return packets;
}

void append(Bytes& stream, const Bytes& more) {
    stream.insert(stream.end(), more.begin(), more.end());
}

/// Hands the stream over in chunks of one or several pieces, in blocks that they fill or in those of a read.
void feedInPieces(CtrlProtocol& protocol, const Bytes& stream, std::mt19937& random) {
    constexpr std::size_t kLimits[] = {1, 3, 20, 1000, 65536};
    const std::size_t limit = kLimits[random() % std::size(kLimits)];
    const std::size_t most = std::max(limit, stream.size() / 150); // bounds the number of pieces
    OBufList chunk;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t size = std::min({1 + random() % most, stream.size() - at, std::size_t{65536}});
        const std::uint8_t* bytes = stream.data() + at;
        chunk.push_back(random() % 2 == 0 ? readOf(bytes, size) : OBufView::make(bytes, size));
        at += size;
        if (random() % 3 != 0) {
            protocol.DepackPacket(std::exchange(chunk, {}));
        }
    }
    protocol.DepackPacket(chunk);
}

std::shared_ptr<SafetyDataDeal> randomContext(std::mt19937& random) {
    using Block = std::array<std::uint8_t, kAesBlockSize>;
    static constexpr Block kKey = {7, 7, 7, 1};
    static constexpr Block kIv = {1, 2, 3};
    auto context = SafetyDataDeal::create(kKey, kIv, kIv);
    context->mEncryptOn = random() % 2 == 0;
    context->mBlockPad = random() % 2 == 0;
    context->mIntegrityOn = random() % 2 == 0;
    return context;
}

/// A message that no peer with the context would send: its integrity value is wrong.
const Bytes kRefused = {0, 6, 1, 0x20, 'b', 'a', 'd', '!', 'd', 'a', 't', 'a'};

/// The packets as the sending end writes them, with refused ones in between.
Bytes protectedStream(const std::vector<oracle::Packet>& packets, std::mt19937& random) {
    RecordingSocket out;
    CtrlProtocol sender;
    sender.setStream(&out);
    sender.setSafetyDataDeal(randomContext(random));
    Bytes stream;
    for (const oracle::Packet& packet : packets) {
        sender.sendCommand(packet.command, packet.sequence,
                           chainOfPieces(packet.payload, 1 + random() % 5000));
        append(stream, bytesOf(out.writes.back()));
        if (random() % 5 == 0) {
            append(stream, oracle::encodePacket(34, 0, kRefused));
        }
    }
    return stream;
}

} // namespace

TEST(DepackProperty, AnyCutOfAnyStreamGivesTheSamePackets) {
    const int streams = rounds(60, 1000);
    for (int seed = 0; seed < streams; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(static_cast<unsigned>(seed));
        const std::vector<oracle::Packet> packets = randomPackets(random);
        Bytes stream;
        for (const oracle::Packet& packet : packets) {
            append(stream,
                   oracle::encodePacket(packet.command, packet.sequence, packet.payload, packet.magic));
        }
        Bytes torn = oracle::encodePacket(34, 1, randomBytes(random, 30));
        torn.resize(random() % torn.size());
        append(stream, torn);
        for (int cut = 0; cut < kCutsOfEachStream; ++cut) {
            RecordingProtocol protocol;
            feedInPieces(protocol, stream, random);
            ASSERT_TRUE(protocol.packets() == packets) << "cut " << cut;
        }
    }
    tried("random cuts of random packet streams", 1LL * streams * kCutsOfEachStream, "cuts");
}

TEST(DepackProperty, AnyCutOfAnyProtectedStreamGivesThePacketsThatWereSent) {
    const int streams = rounds(40, 750);
    LogCapture log; // a line for every message that is refused
    for (int seed = 0; seed < streams; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(static_cast<unsigned>(seed));
        std::vector<oracle::Packet> packets = randomPackets(random);
        for (oracle::Packet& packet : packets) {
            packet.magic = 0x24; // a sender writes no other
        }
        const Bytes stream = protectedStream(packets, random);
        for (int cut = 0; cut < kCutsOfEachStream; ++cut) {
            RecordingProtocol protocol;
            protocol.setSafetyDataDeal(randomContext(random)); // a message says itself how it is protected
            feedInPieces(protocol, stream, random);
            ASSERT_TRUE(protocol.packets() == packets) << "cut " << cut;
        }
    }
    tried("random cuts of random protected streams", 1LL * streams * kCutsOfEachStream, "cuts");
}
