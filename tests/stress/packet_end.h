#pragma once

#include "protocol/ctrl_protocol.h"
#include "transport/stream_pipe.h"

#include <uv.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

/// One end of a packet connection over the real pipe, on a loop and a thread of its own. Everything that it
/// reports is reported on that thread; it is set up before `start` and looked at after `stop`.
class PacketEnd : public OStreamPipe, public CtrlProtocol {
public:
    using Packet = std::vector<std::uint8_t>;

    PacketEnd();
    ~PacketEnd() override;

    /// A full pipe name that no other process uses.
    static std::string freshPipeName();

    /// Makes this end the one that waits for the other; `name` is a full pipe name.
    bool listen(const std::string& name);

    /// Starts the thread. An end that does not listen connects to `name`.
    void start(const std::string& name);

    /// Ends the loop and joins the thread.
    void stop();

    /// Connected: packets may be sent.
    std::function<void()> onReady;
    /// The connection failed or ended.
    std::function<void(std::int32_t status)> onBroken;
    /// What the pipe gets instead of a packet; if empty, every packet is unchanged.
    std::function<std::vector<Packet>(Packet)> interfere;

    bool write(const OBufList& list) override;
    void onRead(OBufList list, std::int32_t status) override;
    void onError(std::int32_t status) override;
    void onConnect(uv_connect_t* request, std::int32_t status) override;
    void onAccept(std::int32_t status) override;

private:
    static void connectionCb(uv_stream_t* listener, int status);
    void begin(std::int32_t status);

    uv_pipe_t mListener = {};
    bool mListening = false;
    std::thread mThread;
};
