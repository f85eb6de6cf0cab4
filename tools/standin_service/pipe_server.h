// The service's end of the pipe: listens, keeps one connection at a time, writes without copying twice.
//
// Everything runs on the thread of the libuv loop. The listening handle is an ordinary pipe handle, each
// accepted handle is opened for handle passing ("ipc"), as the peer opens its own end; on Windows libuv
// frames the bytes of such pipes, so both ends must agree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <uv.h>

namespace standin {

class PipeServer {
public:
    struct Events {
        std::function<void()> connected;
        std::function<void(std::string_view)> received;
        std::function<void(int)> disconnected; // with libuv's error number
    };

    PipeServer(uv_loop_t* loop, std::string pipeName, Events events);
    PipeServer(const PipeServer&) = delete;
    PipeServer& operator=(const PipeServer&) = delete;

    // Creates the pipe and starts to accept. Returns libuv's result; after a failure the call may be repeated
    // (an earlier owner of the name may still be on its way out).
    int listen();

    bool listening() const { return mListener != nullptr; }

    void stopListening();

    bool connected() const { return mConnection != nullptr; }

    // Without a connection the bytes are dropped. False then.
    bool write(std::string bytes);
    // Bytes handed to write() and not yet taken by the operating system.
    std::size_t unwritten() const;
    // Closes the connection; the peer sees the end of the stream. `disconnected` is not called for it.
    void disconnect();
    void setReading(bool on);
    // From here on each read takes at most so many bytes (1 or more) and is followed by a pause.
    void readSlowly(std::size_t bytes, std::uint64_t pauseMs);

private:
    static void onConnection(uv_stream_t* listener, int status);
    static void onAlloc(uv_handle_t* handle, std::size_t suggested, uv_buf_t* buffer);
    static void onRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer);

    void accept();
    void startReading();
    void pauseReading();

    uv_loop_t* mLoop;
    std::string mPipeName;
    Events mEvents;
    uv_pipe_t* mListener = nullptr;   // freed by its close callback
    uv_pipe_t* mConnection = nullptr; // freed by its close callback
    bool mReading = true;
    uv_timer_t mPause{};
    std::uint64_t mPauseMs = 0;
    std::size_t mReadSize = sizeof mReadBuffer;
    char mReadBuffer[65536];
};

} // namespace standin
