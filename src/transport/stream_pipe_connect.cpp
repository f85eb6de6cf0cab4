// How a pipe connects to its peer.

#include "transport/loop_log.h"
#include "transport/stream_pipe.h"

#include <new>
#include <utility>

namespace {

constexpr const char* kDefaultPipeNamePrefix = R"(\\.\pipe\uv_pipe.)";

} // namespace

std::string OStreamPipe::pipeNamePrefix;

bool OStreamPipe::connect(const std::string& name) {
    if (mLoop == nullptr || mLoop->hasBeenStopped() || connecting.exchange(true)) {
        return false;
    }
    bool accepted = false;
    try {
        std::string fullName = (pipeNamePrefix.empty() ? kDefaultPipeNamePrefix : pipeNamePrefix) + name;
        accepted = mLoop->dispatch([this, alive = alive(), fullName = std::move(fullName)] {
            if (!alive.expired()) {
                openConnection(fullName);
            }
        });
    } catch (const std::bad_alloc&) {
        connecting = false;
        throw;
    }
    if (!accepted) {
        connecting = false;
    }
    return accepted;
}

// After an allocation failure `connecting` is false again, and libuv was not called.
void OStreamPipe::openConnection(const std::string& fullName) {
    try {
        if (mLink.load() == Link::Healthy && !hasPeer()) {
            mLink = Link::UsedUp;
        }
        if (mLink.load() == Link::Healthy) {
            // Another thread asked for this connection just as an earlier connect completed.
            completeLater(fullName == mConnectedName ? 0 : UV_EISCONN);
            return;
        }
        if (connectReq == nullptr) {
            connectReq = std::make_unique<uv_connect_t>();
        }
        mConnectedName = fullName;
        if (mLink.load() == Link::UsedUp && pipe != nullptr) {
            mHasEnd = false; // before the pipe is closed
            abandonHandle();
            detachPipe();
        }
        init();
        if (pipe == nullptr) {
            throw std::bad_alloc(); // GCOVR_EXCL_LINE an allocation failure
        }
    } catch (const std::bad_alloc&) {
        connecting = false;
        throw;
    }
    *connectReq = {};
    connectReq->data = this;
    mLink = Link::Connecting;
    uv_pipe_connect(connectReq.get(), pipe.get(), fullName.c_str(), connectCb);
}

void OStreamPipe::completeLater(std::int32_t status) {
    const auto complete = [this, alive = alive(), status] {
        if (!alive.expired()) {
            finishConnection(connectReq.get(), status);
        }
    };
    if (mLoop->post(complete) != 0) {
        complete(); // this is the loop thread, which is stopping
    }
}

void OStreamPipe::connectCb(uv_connect_t* req, int status) {
    auto* owner = static_cast<OStreamPipe*>(req->data);
    if (owner == nullptr) {
        delete req;
        return;
    }
    uv_os_fd_t end = {};
    const bool hasEnd = status == 0 && uv_fileno(owner->handle(), &end) == 0;
    owner->mEnd = end;
    owner->mHasEnd = hasEnd;
    owner->mLink = status == 0 ? Link::Healthy : Link::UsedUp;
    try {
        owner->finishConnection(req, status);
    } catch (const std::bad_alloc&) {
        // Must not throw: called from libuv.
        logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OStreamPipe::connectCb", __LINE__);
    }
}

void OStreamPipe::finishConnection(uv_connect_t* req, std::int32_t status) {
    connecting = false;
    onConnect(req, status);
}
