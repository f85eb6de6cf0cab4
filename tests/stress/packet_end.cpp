#include "stress/packet_end.h"

#include "transport/buf_reader.h"

#include <future>

PacketEnd::PacketEnd() : OStreamPipe(std::make_shared<OUVLoop>()) {
    setStream(this);
}

PacketEnd::~PacketEnd() {
    stop();
    releaseOnDestruction();
}

std::string PacketEnd::freshPipeName() {
    static int number = 0;
#ifdef _WIN32
    const std::string folder = R"(\\.\pipe\)";
#else
    const std::string folder = "./";
#endif
    return folder + "protected_pipe." + std::to_string(uv_os_getpid()) + "." + std::to_string(++number);
}

bool PacketEnd::listen(const std::string& name) {
    // Only the two connected ends speak libuv's IPC framing.
    uv_pipe_init(loop()->uvLoop(), &mListener, 0);
    mListening = uv_pipe_bind(&mListener, name.c_str()) == 0 &&
                 uv_listen(reinterpret_cast<uv_stream_t*>(&mListener), 1, connectionCb) == 0;
    mListener.data = this;
    return mListening;
}

void PacketEnd::start(const std::string& name) {
    std::promise<void> running;
    mThread = std::thread([this, &running] { loop()->run([&running] { running.set_value(); }); });
    running.get_future().wait();
    if (!mListening) {
        // The whole name is in the argument, so that two tests of one process never share a prefix.
        loop()->post([this, name] {
            pipeNamePrefix = name;
            connect("");
        });
    }
}

void PacketEnd::stop() {
    if (mThread.joinable()) {
        loop()->stop();
        mThread.join();
    }
}

void PacketEnd::connectionCb(uv_stream_t* listener, int /*status*/) {
    auto* end = static_cast<PacketEnd*>(listener->data);
    end->accept(listener);
    // One connection is all; and the loop's shutdown closes only handles that have an owner of its own kind.
    uv_close(reinterpret_cast<uv_handle_t*>(listener), nullptr);
}

bool PacketEnd::write(const OBufList& list) {
    if (!interfere) {
        return OStreamPipe::write(list);
    }
    OBufReader reader{OBufList(list)};
    Packet packet(totalLength(list));
    reader.readBytes(packet.data(), packet.size());
    bool written = true;
    for (const Packet& changed : interfere(std::move(packet))) {
        written = OStreamPipe::write({OBufView::make(changed.data(), changed.size())}) && written;
    }
    return written;
}

void PacketEnd::onRead(OBufList list, std::int32_t /*status*/) {
    DepackPacket(std::move(list));
}

void PacketEnd::onError(std::int32_t status) {
    readStop();
    if (onBroken) {
        onBroken(status);
    }
}

void PacketEnd::onConnect(uv_connect_t* /*request*/, std::int32_t status) {
    begin(status);
}

void PacketEnd::onAccept(std::int32_t status) {
    begin(status);
}

void PacketEnd::begin(std::int32_t status) {
    if (status != 0 || !readStart()) {
        if (onBroken) {
            onBroken(status);
        }
        return;
    }
    if (onReady) {
        onReady();
    }
}
