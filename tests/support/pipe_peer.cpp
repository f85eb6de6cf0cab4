#include "support/pipe_peer.h"

#include <atomic>
#include <deque>
#include <stdexcept>
#include <thread>
#include <utility>

#include <uv.h>

#include "support/wait.h"

namespace support {

struct PipePeer::State {
    uv_loop_t loop = {};
    uv_async_t wake = {};
    uv_pipe_t listener = {};
    uv_pipe_t* connection = nullptr; // freed by its close callback
    bool reads = true;
    std::thread thread;

    Monitor monitor; // of what follows
    std::deque<std::function<void(State&)>> tasks;
    std::size_t connections = 0;
    bool ended = false;
    std::string received;

    void runTasks();
    void acceptClient();
    void closeConnection();
    void startReading();
    void onRead(ssize_t count, const char* bytes);
};

namespace {

struct Send {
    uv_write_t req = {};
    std::string bytes;
};

template <typename Handle>
uv_handle_t* asHandle(Handle* handle) {
    return reinterpret_cast<uv_handle_t*>(handle);
}

template <typename Handle>
uv_stream_t* asStream(Handle* handle) {
    return reinterpret_cast<uv_stream_t*>(handle);
}

void allocate(uv_handle_t*, std::size_t size, uv_buf_t* buf) {
    buf->base = new char[size];
    buf->len = static_cast<decltype(buf->len)>(size);
}

} // namespace

void PipePeer::State::runTasks() {
    std::deque<std::function<void(State&)>> batch;
    monitor.change([&] { batch.swap(tasks); });
    for (const std::function<void(State&)>& task : batch) {
        task(*this);
    }
}

void PipePeer::State::acceptClient() {
    closeConnection();
    connection = new uv_pipe_t;
    uv_pipe_init(&loop, connection, 1); // the library's end frames its bytes in this mode
    connection->data = this;
    if (uv_accept(asStream(&listener), asStream(connection)) != 0) {
        closeConnection();
        return;
    }
    if (reads) {
        startReading();
    }
    monitor.change([this] { ++connections; });
}

void PipePeer::State::closeConnection() {
    if (connection != nullptr) {
        uv_close(asHandle(connection),
                 [](uv_handle_t* closed) { delete reinterpret_cast<uv_pipe_t*>(closed); });
        connection = nullptr;
    }
}

void PipePeer::State::startReading() {
    reads = true;
    if (connection == nullptr) {
        return;
    }
    uv_read_start(asStream(connection), allocate,
                  [](uv_stream_t* stream, ssize_t count, const uv_buf_t* buf) {
                      static_cast<State*>(stream->data)->onRead(count, buf->base);
                      delete[] buf->base;
                  });
}

void PipePeer::State::onRead(ssize_t count, const char* bytes) {
    if (count > 0) {
        monitor.change([&] { received.append(bytes, static_cast<std::size_t>(count)); });
    } else if (count < 0) {
        closeConnection();
        monitor.change([this] { ended = true; });
    }
}

PipePeer::PipePeer(const std::string& fullName, Reads reads) : mState(std::make_unique<State>()) {
    State& state = *mState;
    state.reads = reads == Reads::kAtOnce;
    uv_loop_init(&state.loop);
    state.wake.data = &state;
    uv_async_init(&state.loop, &state.wake,
                  [](uv_async_t* async) { static_cast<State*>(async->data)->runTasks(); });
    uv_pipe_init(&state.loop, &state.listener, 0);
    state.listener.data = &state;
    const auto onConnection = [](uv_stream_t* server, int status) {
        if (status == 0) {
            static_cast<State*>(server->data)->acceptClient();
        }
    };
    int result = uv_pipe_bind(&state.listener, fullName.c_str());
    if (result == 0) {
        result = uv_listen(asStream(&state.listener), 8, onConnection);
    }
    state.thread = std::thread([&state] { uv_run(&state.loop, UV_RUN_DEFAULT); });
    if (result != 0) {
        end();
        throw std::runtime_error("cannot listen on " + fullName + ": " + uv_strerror(result));
    }
}

PipePeer::~PipePeer() {
    end();
}

void PipePeer::end() {
    post([](State& state) {
        state.closeConnection();
        uv_close(asHandle(&state.listener), nullptr);
        uv_close(asHandle(&state.wake), nullptr);
    });
    mState->thread.join();
    uv_loop_close(&mState->loop);
}

void PipePeer::post(std::function<void(State&)> task) {
    mState->monitor.change([&] { mState->tasks.push_back(std::move(task)); });
    uv_async_send(&mState->wake);
}

void PipePeer::startReading() {
    post([](State& state) { state.startReading(); });
}

void PipePeer::send(std::string bytes) {
    post([bytes = std::move(bytes)](State& state) {
        if (state.connection == nullptr) {
            return;
        }
        auto* send = new Send;
        send->req.data = send;
        send->bytes = bytes;
        const uv_buf_t buf = uv_buf_init(send->bytes.data(), static_cast<unsigned int>(send->bytes.size()));
        const auto onWritten = [](uv_write_t* req, int) { delete static_cast<Send*>(req->data); };
        if (uv_write(&send->req, asStream(state.connection), &buf, 1, onWritten) != 0) {
            delete send;
        }
    });
}

void PipePeer::disconnect() {
    post([](State& state) { state.closeConnection(); });
}

std::string PipePeer::received() const {
    return mState->monitor.read([this] { return mState->received; });
}

testing::AssertionResult PipePeer::waitForConnections(std::size_t count) const {
    return mState->monitor.reaches(count, "connections", [this] { return mState->connections; });
}

testing::AssertionResult PipePeer::waitForBytes(std::size_t count) const {
    return mState->monitor.reaches(count, "bytes", [this] { return mState->received.size(); });
}

testing::AssertionResult PipePeer::waitForEnd() const {
    return mState->monitor.eventually("the client has closed its end", [this] { return mState->ended; });
}

std::string uniquePipePrefix() {
    static std::atomic<int> number{0};
    const std::string own = std::to_string(uv_os_getpid()) + "-" + std::to_string(++number) + ".";
#ifdef _WIN32
    return R"(\\.\pipe\sonvia-test-)" + own;
#else
    return "pipe-" + own;
#endif
}

} // namespace support
