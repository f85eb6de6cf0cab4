#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Stream = std::vector<std::uint8_t>;

/// The bytes of one packet on the pipe.
Stream packetOf(std::uint16_t sequence, const Stream& payload);

/// What a cutter has delivered. The sum depends on every payload's first and last byte and on the headers.
struct Delivered {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    std::uint64_t sum = 0;

    void add(std::uint16_t command, std::uint16_t sequence, const std::uint8_t* payload, std::uint32_t size) {
        ++packets;
        bytes += size;
        sum += std::uint64_t{command} * 31 + sequence;
        sum += size != 0 ? std::uint64_t{payload[0]} * 17 + payload[size - 1] : 0;
    }

    friend bool operator==(const Delivered&, const Delivered&) = default;
};

/// Packets in one stream, and what every cutter must deliver of them.
struct Packets {
    Stream stream;
    Delivered delivered;
};

/// `count` packets of `size` bytes each, header included; their payloads are random.
Packets packetsOf(std::size_t count, std::size_t size);

/// Whom a cutter hands its packets to: called through a virtual function, as the session is.
class Receiver {
public:
    virtual ~Receiver() = default;
    virtual void onPacket(std::uint16_t command, std::uint16_t sequence, const std::uint8_t* payload,
                          std::uint32_t size) = 0;
};

/// The usual way: received bytes are appended to one buffer, and whole packets are cut off its front.
class AppendedBuffer {
public:
    explicit AppendedBuffer(Receiver& receiver) : mReceiver(receiver) {}

    void receive(const std::uint8_t* bytes, std::size_t size);

private:
    Receiver& mReceiver;
    Stream mBuffer;
};
