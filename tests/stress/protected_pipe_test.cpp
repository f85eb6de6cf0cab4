#include "stress/packet_end.h"
#include "support/effort.h"
#include "support/log_capture.h"
#include "support/protocol/protection_support.h"

#include "protocol/command_names.h"
#include "transport/pack_buf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <future>

using namespace support;

namespace {

/// 100,000 each way over the eight combinations. Under Wine a packet takes a tenth of a millisecond and more, elsewhere
/// a microsecond: there the short form makes do with fewer.
std::uint32_t packetsEachWay() {
    constexpr std::uint32_t kAll = 12'500;
#ifdef _WIN32
    return longForm() ? kAll : kAll / 5;
#else
    return kAll;
#endif
}

constexpr std::uint32_t kTamperedPackets = 6'000;
constexpr std::uint32_t kWindow = 64;
// Under the sanitizers, on a machine that builds meanwhile, the packets take a minute.
constexpr std::chrono::minutes kTransferTimeout{4};

/// Bytes that every payload is cut out of, so that both ends know what the packet with a number must hold.
const Bytes& material() {
    static const Bytes bytes = [] {
        std::mt19937 random(21);
        return randomBytes(random, 64 * 1024);
    }();
    return bytes;
}

/// The payload of packet `number`: mostly short, every remainder of the block size, now and then larger than
/// a read.
std::pair<const std::uint8_t*, std::size_t> payloadOf(std::uint32_t number) {
    const std::size_t size = number % 5000 == 4999 ? material().size() / 2 : number * 7 % 201;
    return {material().data() + number * 13 % (material().size() - size), size};
}

OBufList payloadList(std::uint32_t number) {
    const auto [bytes, size] = payloadOf(number);
    if (size == 0) {
        return {};
    }
    return {OBufView::make(bytes, size)};
}

/// Sends the numbered packets from its end and gives what arrives there to `take`; both on the end's thread.
class Talker {
public:
    Talker(PacketEnd& end, std::shared_ptr<SafetyDataDeal> context, std::uint32_t packets)
        : mEnd(end), mPackets(packets) {
        end.setSafetyDataDeal(std::move(context));
        end.onReady = [this] {
            while (mSent < std::min(kWindow, mPackets)) {
                sendNext();
            }
        };
        end.onBroken = [this](std::int32_t) { finish(); };
        end.setHandler([this](const CtrlPacketHeader* header, const std::uint8_t* payload,
                              std::uint32_t length) { take(*header, payload, length); });
    }

    bool waitUntilFinished() {
        return mFinished.get_future().wait_for(kTransferTimeout) == std::future_status::ready;
    }

    std::uint32_t mSent = 0;
    std::uint32_t mReceived = 0;
    /// Packets that were not the next one or did not hold what was sent.
    std::uint32_t mWrong = 0;

private:
    void sendNext() {
        mEnd.sendCommand(kCommandNotify, static_cast<std::uint16_t>(mSent), payloadList(mSent));
        ++mSent;
    }

    void take(const CtrlPacketHeader& header, const std::uint8_t* payload, std::uint32_t length) {
        const auto [expected, size] = payloadOf(mReceived);
        const bool right = header.magic == '$' && header.cmdType == kCommandNotify &&
                           header.seq == static_cast<std::uint16_t>(mReceived) && length == size &&
                           (size == 0 ? payload == nullptr : std::memcmp(payload, expected, size) == 0);
        mWrong += right ? 0 : 1;
        ++mReceived;
        if (mSent < mPackets) {
            sendNext();
        }
        if (mReceived == mPackets) {
            finish();
        }
    }

    void finish() {
        if (!mIsFinished) {
            mIsFinished = true;
            mFinished.set_value();
        }
    }

    PacketEnd& mEnd;
    const std::uint32_t mPackets;
    bool mIsFinished = false;
    std::promise<void> mFinished;
};

bool isAboutTheLoop(const std::string& line) {
    return line.starts_with("D Sonvia_Default: [OUVLoop::");
}

/// An empty payload without padding leaves nothing to take an integrity value of, which is worth a line.
bool isAboutEmptyData(const std::string& line) {
    return line == "E Sonvia_Default: [SafetyDataDeal::encryptData:line]outSize:8 headerSize:8";
}

class ProtectedPipeTest : public testing::TestWithParam<ProtectionFlags> {};

TEST_P(ProtectedPipeTest, TwoEndsExchangePacketsInBothDirections) {
    const std::uint32_t packets = packetsEachWay();
    LogCapture log;
    const std::string name = PacketEnd::freshPipeName();
    PacketEnd server;
    PacketEnd client;
    Talker serverTalker(server, nearContext(GetParam()), packets);
    Talker clientTalker(client, farContext(GetParam()), packets);
    ASSERT_TRUE(server.listen(name));
    server.start(name);
    client.start(name);
    EXPECT_TRUE(serverTalker.waitUntilFinished());
    EXPECT_TRUE(clientTalker.waitUntilFinished());
    client.stop();
    server.stop();
    for (const Talker* talker : {&serverTalker, &clientTalker}) {
        EXPECT_EQ(talker->mSent, packets);
        EXPECT_EQ(talker->mReceived, packets);
        EXPECT_EQ(talker->mWrong, 0U);
    }
    tried("protected packets each way over a pipe", packets, "packets");
    for (const std::string& line : log.texts()) {
        const bool expected = isAboutTheLoop(line) || isAboutEmptyData(line);
        ASSERT_TRUE(expected) << line;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryFlagCombination, ProtectedPipeTest, testing::ValuesIn(everyFlagCombination()),
                         [](const auto& combination) {
                             std::string name = combination.param.encrypt ? "Encrypted" : "Plain";
                             name += combination.param.pad ? "Padded" : "";
                             name += combination.param.integrity ? "Checked" : "";
                             return name;
                         });

enum class Harm { kNone, kFlippedBit, kCutMessage, kReplay };

/// Three harms, far enough apart that the chain has recovered in between.
Harm harmTo(std::uint32_t number) {
    switch (number % 30) {
    case 7:
        return Harm::kFlippedBit;
    case 17:
        return Harm::kCutMessage;
    case 27:
        return Harm::kReplay;
    default:
        return Harm::kNone;
    }
}

constexpr std::size_t kFrameHeader = 9;

std::size_t bytesCut(std::uint32_t number) {
    return 1 + number % kAesBlockSize;
}

/// The pad count is looked at before the integrity value, and what is left can be less than it.
bool isRefusedForItsPadCount(std::uint32_t number) {
    const std::size_t size = payloadOf(number).second;
    return harmTo(number) == Harm::kCutMessage && size < bytesCut(number);
}

/// A cut message in a whole frame: the size field says what is left, so the stream stays in step.
PacketEnd::Packet cutMessage(PacketEnd::Packet packet, std::size_t bytes) {
    packet.erase(packet.end() - static_cast<std::ptrdiff_t>(bytes), packet.end());
    const std::size_t size = packet.size() - kFrameHeader;
    for (std::size_t index = 0; index < 4; ++index) {
        packet[5 + index] = static_cast<std::uint8_t>(size >> 8 * (3 - index));
    }
    return packet;
}

std::vector<PacketEnd::Packet> harmed(std::uint32_t number, PacketEnd::Packet packet) {
    switch (harmTo(number)) {
    case Harm::kFlippedBit: {
        const std::size_t data = kFrameHeader + 9;
        const std::size_t index = data + number % (packet.size() - data);
        packet[index] = static_cast<std::uint8_t>(packet[index] ^ 1U << number % 8);
        return {packet};
    }
    case Harm::kCutMessage:
        return {cutMessage(packet, bytesCut(number))};
    case Harm::kReplay:
        return {packet, packet};
    case Harm::kNone:
        break;
    }
    return {packet};
}

/// What arrived at the far end of a damaged connection, in order.
struct Arrival {
    std::uint16_t seq = 0;
    Bytes payload;
};

std::vector<Arrival> sendHarmed(std::uint32_t packets) {
    const std::string name = PacketEnd::freshPipeName();
    PacketEnd server;
    PacketEnd client;
    std::vector<Arrival> arrivals;
    std::promise<void> finished;
    std::uint32_t sent = 0;
    server.setSafetyDataDeal(nearContext({true, true, true}));
    server.setHandler([&](const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length) {
        arrivals.push_back({header->seq, Bytes(payload, payload + length)});
        if (header->seq == packets - 1) {
            finished.set_value();
        }
    });
    client.setSafetyDataDeal(farContext({true, true, true}));
    client.interfere = [&](PacketEnd::Packet packet) { return harmed(sent, std::move(packet)); };
    client.onReady = [&] {
        for (; sent < packets; ++sent) {
            client.sendCommand(kCommandNotify, static_cast<std::uint16_t>(sent), payloadList(sent));
        }
    };
    EXPECT_TRUE(server.listen(name));
    server.start(name);
    client.start(name);
    EXPECT_EQ(finished.get_future().wait_for(kTransferTimeout), std::future_status::ready);
    client.stop();
    server.stop();
    return arrivals;
}

/// The chain differs from the sender's: the first block is lost, the rest of the payload is not.
bool lostItsFirstBlock(const Bytes& payload, std::uint32_t number) {
    const auto [expected, size] = payloadOf(number);
    if (payload.size() != size) {
        return false;
    }
    const std::size_t first = std::min(size, kAesBlockSize);
    return (first == 0 || std::memcmp(payload.data(), expected, first) != 0) &&
           std::equal(payload.begin() + static_cast<std::ptrdiff_t>(first), payload.end(), expected + first);
}

bool isWhole(const Bytes& payload, std::uint32_t number) {
    const auto [expected, size] = payloadOf(number);
    return payload.size() == size && std::equal(payload.begin(), payload.end(), expected);
}

bool isDropped(Harm harm) {
    return harm == Harm::kFlippedBit || harm == Harm::kCutMessage;
}

TEST(HarmedPipeTest, HarmedMessagesAreDroppedAndTheStreamGoesOn) {
    LogCapture log;
    const std::vector<Arrival> arrivals = sendHarmed(kTamperedPackets);
    std::size_t next = 0;
    std::size_t dropped = 0;
    std::size_t droppedForPadCount = 0;
    for (std::uint32_t number = 0; number < kTamperedPackets; ++number) {
        if (isDropped(harmTo(number))) {
            ++dropped;
            droppedForPadCount += isRefusedForItsPadCount(number) ? 1 : 0;
            continue;
        }
        ASSERT_LT(next, arrivals.size());
        ASSERT_EQ(arrivals[next].seq, number);
        const bool afterDropped = number > 0 && isDropped(harmTo(number - 1));
        ASSERT_TRUE(afterDropped ? lostItsFirstBlock(arrivals[next].payload, number)
                                 : isWhole(arrivals[next].payload, number))
            << number;
        ++next;
        if (harmTo(number) == Harm::kReplay) {
            // A replay carries a right integrity value; it is the chain that does not fit.
            ASSERT_LT(next, arrivals.size());
            ASSERT_EQ(arrivals[next].seq, number);
            ASSERT_TRUE(lostItsFirstBlock(arrivals[next].payload, number)) << number;
            ++next;
        }
    }
    EXPECT_EQ(next, arrivals.size());

    std::size_t integrityLines = 0;
    std::size_t failedLines = 0;
    std::size_t packetLines = 0;
    for (const std::string& line : log.texts()) {
        integrityLines += line.ends_with(" safetyIntegrityData failed") ? 1 : 0;
        failedLines += line == "E Sonvia_Default: [SafetyDataDeal::decryptData:line]failed" ? 1 : 0;
        packetLines +=
            line.starts_with("E Sonvia_Default: [CtrlProtocol::DepackPacket:line]cmdType:Notify size:") &&
                    line.ends_with(" decryptData failed")
                ? 1
                : 0;
    }
    EXPECT_EQ(integrityLines, dropped - droppedForPadCount);
    EXPECT_EQ(failedLines, dropped);
    EXPECT_EQ(packetLines, dropped);
}

} // namespace
