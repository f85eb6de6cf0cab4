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

    /// Creates the libuv pipe, once. Loop thread, or any thread while the loop does not run.
    virtual void init();

    /// Starts to connect to pipe prefix + `name`. Any thread: the decision is made at once, the libuv calls where libuv may
    /// be entered. False while an earlier connect is under way, without a loop, and after the loop was stopped. Otherwise
    /// true; onConnect then reports the result, for which the loop must run. With a healthy connection the result is 0 for
    /// the same name and UV_EISCONN for another; the connection stays. Throws std::bad_alloc; no connect is under way then.
    virtual bool connect(const std::string& name);
    /// Ends a read that blocks the loop thread inside libuv, so that the loop can stop. Any thread.
    void interruptReading();

    /// A connect has completed; 0 or a negative libuv error. Loop thread.
    virtual void onConnect(uv_connect_t* req, std::int32_t status);
    /// Takes a pending connection of a listening pipe. Loop thread.
    virtual bool accept(uv_stream_t* server);
    virtual void onAccept(std::int32_t status);
    virtual std::string localName();
    virtual std::string peerName();

    /// Replaces the default prefix "\\.\pipe\uv_pipe." unless it is empty. Process-wide; must be set before any pipe
    /// connects. The library leaves it empty; tests use it for a pipe of their own.
    static std::string pipeNamePrefix;

protected:
    void markBroken() override;
    bool refuseTransfers() override;

    /// Bytes that libuv has queued and the system has not accepted yet. Where libuv may be entered.
    std::size_t unsentBytes() const;

    std::unique_ptr<uv_pipe_t, void (*)(void*)> pipe; ///< null until init and after close
    std::unique_ptr<uv_connect_t> connectReq;         ///< made by the first connect, reused by later ones
    std::atomic<bool> connecting{false};
    bool initialized = false;

private:
    /// The state of the current pipe's connection. A pipe is used for one attempt: after a failure libuv reports it as busy
    /// on Windows; elsewhere it connects, but neither reads nor writes.
    enum class Link : std::uint8_t { None, Connecting, Healthy, UsedUp };

    static void connectCb(uv_connect_t* req, int status);
    void openConnection(const std::string& fullName);
    /// Posts the result of a connect that needed no libuv call.
    void completeLater(std::int32_t status);
    void finishConnection(uv_connect_t* req, std::int32_t status);
    void detachPipe();
    bool hasPeer() const;

    uv_stream_t* stream() const { return reinterpret_cast<uv_stream_t*>(pipe.get()); }

    /// Written where libuv may be entered.
    std::atomic<Link> mLink{Link::None};
    std::atomic<bool> mHasEnd{false}; ///< mEnd belongs to the current link
    std::atomic<uv_os_fd_t> mEnd{};
    std::string mConnectedName; ///< the full name of the current link
    OLoopCheck mTransferCheck;  ///< libuv makes no callback for a transfer without bytes
};
