// Byte 0 of an input chooses what the ends do with payloads (bits 0 to 3, see makeContext), whether a protection context
// is installed (bit 4), and whether the packets of the stream are sealed before they are sent (bit 5): all but those
// without the magic character, which stay what a peer that cannot be trusted made of them. Bytes 1 and 2 choose two
// ways of cutting the stream, which is the rest. Both must give the packets that a plain second decoder finds.

#include "oracle/packets.h"
#include "protocol/ctrl_protocol.h"
#include "support/cuts.h"
#include "support/input.h"
#include "support/protected_ends.h"
#include "support/require.h"
#include "support/transport/kept_stream.h"

#include <optional>
#include <utility>
#include <vector>

using oracle::Bytes;

namespace {

constexpr std::uint8_t kWithContext = 16;
constexpr std::uint8_t kSealed = 32;

/// A packet as it is delivered, with the size that its header gave.
struct Delivered {
    oracle::Packet packet;
    std::uint32_t size = 0;

    friend bool operator==(const Delivered&, const Delivered&) = default;
};

using Packets = std::vector<Delivered>;

class Receiver : public CtrlProtocol {
public:
    void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                  std::uint32_t length) override {
        require((payload == nullptr) == (length == 0), "just an empty payload has no place");
        packets.push_back({{header->magic, header->cmdType, header->seq, {}}, header->size});
        if (payload != nullptr) {
            packets.back().packet.payload.assign(payload, payload + length);
        }
    }

    Packets packets;
};

Packets received(const Bytes& stream, std::uint8_t choice, std::uint8_t cuts) {
    Receiver receiver;
    if ((choice & kWithContext) != 0) {
        receiver.setSafetyDataDeal(makeContext(choice));
    }
    for (OBufList& chunk : cutIntoChunks(stream, cuts)) {
        receiver.DepackPacket(std::move(chunk));
    }
    return std::move(receiver.packets);
}

Packets expected(Bytes stream, std::uint8_t choice) {
    oracle::Protection protection = makeProtection(choice);
    Packets delivered;
    for (oracle::Packet& packet : oracle::takePackets(stream)) {
        const auto size = static_cast<std::uint32_t>(packet.payload.size());
        std::optional<Bytes> payload = packet.payload;
        if ((choice & kWithContext) != 0) {
            payload = protection.open(packet.payload);
        }
        if (payload) {
            packet.payload = std::move(*payload);
            delivered.push_back({std::move(packet), size});
        }
    }
    return delivered;
}

/// Sends the packets of `stream` over again, protected, and checks what is written on the way.
Bytes sealed(Bytes stream, std::uint8_t choice, std::uint8_t cuts) {
    support::KeptStream out;
    CtrlProtocol sender;
    sender.setStream(&out);
    sender.setSafetyDataDeal(makeContext(choice));
    oracle::Protection model = makeProtection(choice);
    for (const oracle::Packet& packet : oracle::takePackets(stream)) {
        if (packet.magic != oracle::kMagic) {
            oracle::append(out.bytes, oracle::encodePacket(packet.command, packet.sequence, packet.payload,
                                                           packet.magic));
            continue;
        }
        const std::size_t before = out.bytes.size();
        sender.sendCommand(packet.command, packet.sequence, cutIntoPieces(packet.payload, cuts));
        require(oracle::part(out.bytes, before, out.bytes.size() - before) ==
                    oracle::encodePacket(packet.command, packet.sequence, model.seal(packet.payload)),
                "a packet is sent as the model sends it");
    }
    oracle::append(out.bytes, stream);
    return out.bytes;
}

/// What was sealed must come back as it was, unless a packet in between has moved the receiving chain.
void requireSameContents(const std::vector<oracle::Packet>& sent, const Packets& arrived) {
    for (const oracle::Packet& packet : sent) {
        if (packet.magic != oracle::kMagic) {
            return;
        }
    }
    require(sent.size() == arrived.size(), "every sealed packet arrives");
    for (std::size_t index = 0; index < sent.size(); ++index) {
        require(sent[index] == arrived[index].packet, "a sealed packet arrives as it was sent");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choice = input.takeByte();
    const std::uint8_t firstCuts = input.takeByte();
    const std::uint8_t secondCuts = input.takeByte();
    Bytes stream = input.rest();
    const bool isSealed = (choice & kWithContext) != 0 && (choice & kSealed) != 0;
    Bytes plain = stream;
    if (isSealed) {
        stream = sealed(std::move(stream), choice, firstCuts);
    }
    const Packets packets = expected(stream, choice);
    require(received(stream, choice, firstCuts) == packets, "the packets are those of the plain decoder");
    require(received(stream, choice, secondCuts) == packets, "other cuts give the same packets");
    if (isSealed) {
        requireSameContents(oracle::takePackets(plain), packets);
    }
    return 0;
}
