#pragma once

#include "transport/socket.h"

#include <uv.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// A byte stream over a local named pipe in libuv's IPC mode; both ends must use that mode, because libuv
/// frames the bytes of such pipes.
class OStreamPipe : public OBaseSocket {
public:
    explicit OStreamPipe(std::shared_ptr<OUVLoop> loop);
    ~OStreamPipe() override;

    uv_handle_t* handle() override;
    void releaseHandle() override;
    void onClosed() override;
    bool readStart() override;
    bool readStop() override;
    bool write(const OBufList& list) override;

    /// Creates the libuv pipe, once. Loop thread, or any while the loop does not run; so for connect's own
    /// work.
    virtual void init();

    /// Starts to connect to pipe prefix + `name`. Any thread: whether a connection may be started is decided
    /// here and now, the libuv calls are made where libuv may be entered. False while an earlier connect is
    /// under way (or without a loop); otherwise true, and onConnect brings the result. A pipe that turns out
    /// to be connected already completes with 0.
    virtual bool connect(const std::string& name);
    /// A connect has completed; 0 or a negative libuv error. Loop thread.
    virtual void onConnect(uv_connect_t* req, std::int32_t status);
    /// Takes a pending connection of a listening pipe. Loop thread.
    virtual bool accept(uv_stream_t* server);
    virtual void onAccept(std::int32_t status);
    virtual std::string localName();
    virtual std::string peerName();

    /// Replaces the default prefix "\\.\pipe\uv_pipe." where it is not empty. Process-wide; to be set before
    /// any pipe connects. The library leaves it empty; tests give themselves a pipe of their own.
    static std::string pipeNamePrefix;

protected:
    std::unique_ptr<uv_pipe_t, void (*)(void*)> pipe; ///< null until init and after close
    std::unique_ptr<uv_connect_t> connectReq;         ///< made by the first connect, reused by later ones
    std::atomic<bool> connecting{false};
    bool initialized = false;

private:
    static void connectCb(uv_connect_t* req, int status);
    void openConnection(const std::string& fullName);
    void finishConnection(uv_connect_t* req, std::int32_t status);
    void forgetPipe();

    uv_stream_t* stream() const { return reinterpret_cast<uv_stream_t*>(pipe.get()); }

    /// libuv holds connectReq. `connecting` does not tell that: it is set before the loop thread has begun.
    std::atomic<bool> mConnectInFlight{false};
    /// The last connect of this libuv pipe has failed, and libuv would refuse another. Loop thread.
    bool mConnectFailed = false;
};
