// One end of the pipe, played by `replay`.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <uv.h>

#include "oracle/packets.h"

namespace inspect {

/// Runs on the thread of its loop, which must end every handle after `close` before the peer is deleted.
class Peer {
public:
    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    /// Begins to serve the pipe or to connect to it. Throws InputError when it cannot be served.
    virtual void start() = 0;
    virtual void send(const oracle::Bytes& bytes) = 0;
    /// Ends the connection. Another one may come: the server takes it, the client makes it when `start` is called.
    virtual void disconnect() = 0;
    /// Ends everything; nothing may be called afterwards.
    virtual void close() = 0;

    bool connected() const { return mConnected; }

    /// Why the connection has ended; empty while it has not.
    const std::string& ended() const { return mEnded; }

    /// The next whole packet that the other end has sent.
    std::optional<oracle::Packet> take();

protected:
    void begin();
    void arrive(std::string_view bytes);
    void end(int code);
    void forget();

private:
    bool mConnected = false;
    std::string mEnded;
    oracle::Bytes mArrived; ///< of a packet that is not whole
    std::deque<oracle::Packet> mPackets;
};

/// The service's end.
std::unique_ptr<Peer> servingPeer(uv_loop_t* loop, const std::string& pipe);
/// The host's end: tries to connect until it succeeds.
std::unique_ptr<Peer> connectingPeer(uv_loop_t* loop, const std::string& pipe);

} // namespace inspect
