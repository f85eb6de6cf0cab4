#pragma once

#include "transport/loop_check.h"
#include "transport/socket.h"

#include <uv.h>

#include <atomic>
#include <cstddef>
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
    /// under way, without a loop and when the loop has been stopped; otherwise true, and onConnect brings the result, for
    /// which the loop must run. A healthy connection to the same name completes with 0, one to another name with
    /// UV_EISCONN; both stay as they are. Throws std::bad_alloc, and then no connect is under way.
    virtual bool connect(const std::string& name);
    /// Ends a read that libuv waits in on the loop thread, which is to stop. Any thread.
    void interruptReading();

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
    void noteBroken() override;
    bool refuseTransfers() override;

    /// Bytes that libuv has been handed and the system has not taken. Where libuv may be entered.
    std::size_t unsentBytes() const;

    std::unique_ptr<uv_pipe_t, void (*)(void*)> pipe; ///< null until init and after close
    std::unique_ptr<uv_connect_t> connectReq;         ///< made by the first connect, reused by later ones
    std::atomic<bool> connecting{false};
    bool initialized = false;

private:
    /// What libuv knows of a connection of the current pipe. A pipe is tried once: on Windows libuv calls one that has
    /// failed busy ever after, elsewhere it connects it and then neither reads nor writes.
    enum class Link : std::uint8_t { None, Connecting, Healthy, UsedUp };

    static void connectCb(uv_connect_t* req, int status);
    void openConnection(const std::string& fullName);
    /// Has the loop thread report the end of a connect that libuv was not asked for.
    void completeLater(std::int32_t status);
    void finishConnection(uv_connect_t* req, std::int32_t status);
    void detachPipe();
    bool hasPeer() const;

    uv_stream_t* stream() const { return reinterpret_cast<uv_stream_t*>(pipe.get()); }

    /// Changed where libuv may be entered.
    std::atomic<Link> mLink{Link::None};
    std::atomic<bool> mHasEnd{false}; ///< mEnd is this link's
    std::atomic<uv_os_fd_t> mEnd{};
    std::string mConnectedName; ///< the full name of the current link
    OLoopCheck mTransferCheck;  ///< libuv keeps a transfer that comes without bytes, and calls nobody
};
