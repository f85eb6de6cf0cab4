// What the protocol's tests need around it: a stream that keeps what is written, a protocol that keeps what
// arrives, and chains of views cut as a test wants them.
#pragma once

#include "oracle/packets.h"
#include "protocol/ctrl_protocol.h"
#include "transport/buf_list.h"
#include "transport/socket.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace support {

/// A chain of one piece.
OBufList chainOf(const oracle::Bytes& bytes);
/// A chain of pieces of at most `pieceSize` bytes, each in a block of its own.
OBufList chainOfPieces(const oracle::Bytes& bytes, std::size_t pieceSize);
/// One read as the loop makes it: the bytes at the start of a block of 64 KB.
OBufView readOf(const std::uint8_t* bytes, std::size_t size);
oracle::Bytes bytesOf(const OBufList& list);

/// A stream that goes nowhere.
class RecordingSocket : public OBaseSocket {
public:
    RecordingSocket() : OBaseSocket(nullptr) {}

    uv_handle_t* handle() override { return nullptr; }

    void releaseHandle() override {}

    bool readStart() override { return false; }

    bool readStop() override { return false; }

    bool write(const OBufList& list) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        writes.push_back(list);
        return accepts;
    }

    /// All bytes written so far, cut into packets. Any thread.
    std::vector<oracle::Packet> packets() const;

    std::vector<OBufList> writes; ///< not to be looked at while another thread may write
    bool accepts = true;

private:
    mutable std::mutex mMutex;
};

struct Received {
    CtrlPacketHeader header = {};
    oracle::Bytes payload;
    bool nullPayload = false;
};

class RecordingProtocol : public CtrlProtocol {
public:
    void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length) override;

    /// Hands bytes over as one chunk of one piece.
    void feed(const oracle::Bytes& bytes) { DepackPacket(chainOf(bytes)); }

    std::vector<oracle::Packet> packets() const;

    std::vector<Received> received;
    std::vector<const std::uint8_t*> payloadPlaces;
};

} // namespace support
