#include "peer.h"

#include <fmt/format.h>

#include "capture.h"
#include "pipe_server.h"

namespace inspect {

namespace {

constexpr std::uint64_t kRetryMs = 20;

class ServingPeer : public Peer {
public:
    ServingPeer(uv_loop_t* loop, const std::string& pipe)
        : mName(pipe), mServer(loop, pipe,
                               {[this] { begin(); }, [this](std::string_view bytes) { arrive(bytes); },
                                [this](int code) { end(code); }}) {}

    void start() override {
        if (const int result = mServer.listen(); result != 0) {
            throw InputError(fmt::format("cannot serve {}: {}", mName, uv_strerror(result)));
        }
    }

    void send(const oracle::Bytes& bytes) override { mServer.write(oracle::text(bytes)); }

    void disconnect() override {
        mServer.disconnect();
        forget();
    }

    void close() override {
        mServer.disconnect();
        mServer.stopListening();
    }

private:
    std::string mName;
    standin::PipeServer mServer;
};

class ConnectingPeer : public Peer {
public:
    ConnectingPeer(uv_loop_t* loop, std::string pipe) : mLoop(loop), mName(std::move(pipe)) {
        uv_timer_init(mLoop, &mRetry);
        mRetry.data = this;
    }

    // A handle that has failed to connect is not used again: each attempt has its own.
    void start() override {
        if (mPipe != nullptr || uv_is_active(reinterpret_cast<uv_handle_t*>(&mRetry)) != 0) {
            return; // an attempt is under way, or the next one is due soon
        }
        mPipe = new uv_pipe_t;
        uv_pipe_init(mLoop, mPipe, 1);
        mPipe->data = this;
        auto* request = new uv_connect_t;
        uv_pipe_connect(request, mPipe, mName.c_str(), [](uv_connect_t* done, int status) {
            auto* self = static_cast<ConnectingPeer*>(done->handle->data);
            delete done;
            if (self != nullptr) {
                self->attempted(status);
            }
        });
    }

    void send(const oracle::Bytes& bytes) override {
        if (mPipe == nullptr) {
            return;
        }
        auto* write = new Write{{}, bytes};
        write->request.data = write;
        const uv_buf_t buffer = uv_buf_init(reinterpret_cast<char*>(write->bytes.data()),
                                            static_cast<unsigned>(write->bytes.size()));
        if (uv_write(&write->request, stream(), &buffer, 1,
                     [](uv_write_t* done, int) { delete static_cast<Write*>(done->data); }) != 0) {
            delete write;
        }
    }

    void disconnect() override {
        drop();
        forget();
    }

    void close() override {
        drop();
        uv_timer_stop(&mRetry);
        uv_close(reinterpret_cast<uv_handle_t*>(&mRetry), nullptr);
    }

private:
    struct Write {
        uv_write_t request;
        oracle::Bytes bytes;
    };

    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(mPipe); }

    void drop() {
        if (mPipe != nullptr) {
            mPipe->data = nullptr;
            uv_close(reinterpret_cast<uv_handle_t*>(mPipe),
                     [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
            mPipe = nullptr;
        }
    }

    void attempted(int status) {
        if (status != 0) {
            drop();
            uv_timer_start(
                &mRetry, [](uv_timer_t* timer) { static_cast<ConnectingPeer*>(timer->data)->start(); },
                kRetryMs, 0);
            return;
        }
        begin();
        uv_read_start(
            stream(),
            [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
                auto* self = static_cast<ConnectingPeer*>(handle->data);
                *buffer = uv_buf_init(self->mBuffer, sizeof self->mBuffer);
            },
            [](uv_stream_t* from, ssize_t count, const uv_buf_t* buffer) {
                static_cast<ConnectingPeer*>(from->data)->read(count, buffer->base);
            });
    }

    void read(ssize_t count, const char* bytes) {
        if (count > 0) {
            arrive({bytes, static_cast<std::size_t>(count)});
        } else if (count < 0) {
            drop();
            end(static_cast<int>(count));
        }
    }

    uv_loop_t* mLoop;
    std::string mName;
    uv_pipe_t* mPipe = nullptr; // freed by its close callback
    uv_timer_t mRetry{};
    char mBuffer[65536] = {};
};

} // namespace

std::optional<oracle::Packet> Peer::take() {
    if (mPackets.empty()) {
        return std::nullopt;
    }
    oracle::Packet first = std::move(mPackets.front());
    mPackets.pop_front();
    return first;
}

void Peer::begin() {
    mConnected = true;
    mEnded.clear();
}

void Peer::arrive(std::string_view bytes) {
    oracle::append(mArrived, oracle::bytesOf(bytes));
    for (oracle::Packet& packet : oracle::takePackets(mArrived)) {
        mPackets.push_back(std::move(packet));
    }
}

void Peer::end(int code) {
    mConnected = false;
    mEnded = fmt::format("the connection has ended ({})", uv_err_name(code));
}

void Peer::forget() {
    mConnected = false;
    mEnded.clear();
    mArrived.clear();
    mPackets.clear();
}

std::unique_ptr<Peer> servingPeer(uv_loop_t* loop, const std::string& pipe) {
    return std::make_unique<ServingPeer>(loop, pipe);
}

std::unique_ptr<Peer> connectingPeer(uv_loop_t* loop, const std::string& pipe) {
    return std::make_unique<ConnectingPeer>(loop, pipe);
}

} // namespace inspect
