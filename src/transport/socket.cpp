#include "transport/socket.h"

#include "transport/loop_log.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

/// Limit of one read, in bytes. libuv suggests the size that the current frame announces; memory is allocated only for
/// bytes that have arrived.
constexpr std::size_t kMaxReadSize = 65536;

OBaseSocket* ownerOf(const uv_handle_t* handle) {
    return static_cast<OBaseSocket*>(static_cast<OBaseHandle*>(handle->data));
}

} // namespace

OBaseSocket::OBaseSocket(std::shared_ptr<OUVLoop> loop) : OBaseHandle(std::move(loop)) {}

OBaseSocket::~OBaseSocket() {
    for (OWriteReq* req : freeWriteReqs) {
        delete req;
    }
    for (OWriteReq* req : activeWriteReqs) {
        req->owner = nullptr; // libuv still holds it: its completion destroys it
    }
    eventCallback = nullptr;
    writeCallback = nullptr;
    readCallback = nullptr;
    pendingReads.clear();
}

void OBaseSocket::clearCallbacks() {
    readCallback = nullptr;
    writeCallback = nullptr;
    eventCallback = nullptr;
}

void OBaseSocket::onRead(OBufList list, std::int32_t status) {
    if (readCallback) {
        readCallback(this, std::move(list), status);
    }
}

void OBaseSocket::onError(std::int32_t status) {
    if (eventCallback) {
        eventCallback(this, kReadError, status);
    }
}

void OBaseSocket::onWrite(const OBufList& list, std::int32_t status) {
    if (writeCallback) {
        writeCallback(this, list, status);
    }
}

OUVLoop* OBaseSocket::loop() {
    return mLoop.get();
}

void OBaseSocket::setLoop(OUVLoop* loop) {
    mLoop.reset(loop);
}

void OBaseSocket::setReadCallback(ReadCallback callback) {
    readCallback = std::move(callback);
}

void OBaseSocket::setWriteCallback(WriteCallback callback) {
    writeCallback = std::move(callback);
}

void OBaseSocket::setEventCallback(EventCallback callback) {
    eventCallback = std::move(callback);
}

void OBaseSocket::allocCb(uv_handle_t* handle, std::size_t suggestedSize, uv_buf_t* buf) {
    OBaseSocket* owner = ownerOf(handle);
    const std::size_t size = std::min(suggestedSize, kMaxReadSize);
    try {
        // Reuses a block that nothing was read into: a peer that pauses would leave one behind each time.
        OBufList block = owner->takePendingRead(std::exchange(owner->mUnfilled, nullptr));
        OBufView& view = block.front();
        if (view.length < size) {
            view.reset(size);
        }
        buf->base = reinterpret_cast<char*>(view.data());
        buf->len = static_cast<decltype(buf->len)>(std::min<std::uint64_t>(view.length, size));
        owner->pendingReads.append(std::move(block));
    } catch (const std::bad_alloc&) {
        *buf = {}; // libuv reports UV_ENOBUFS
    }
}

void OBaseSocket::readCb(uv_stream_t* stream, ssize_t nread, const uv_buf_t* buf) {
    OBaseSocket* owner = ownerOf(reinterpret_cast<uv_handle_t*>(stream));
    if (owner == nullptr) {
        return;
    }
    try {
        owner->handleRead(stream, nread, *buf);
    } catch (const std::bad_alloc&) {
        logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OBaseSocket::readCb", __LINE__);
        uv_read_stop(stream); // bytes are lost: what follows cannot be parsed
    }
}

void OBaseSocket::handleRead(uv_stream_t* stream, ssize_t nread, const uv_buf_t& buf) {
    if (refuseTransfers()) {
        return;
    }
    if (nread == 0) {
        mUnfilled = buf.base;
        pauseReading(stream);
    }
    if (nread < 0 && nread != UV_ENOBUFS) { // after an allocation failure the stream itself is intact
        markBroken();
    }
    if (nread <= 0) {
        onError(static_cast<std::int32_t>(nread));
        return;
    }
    OBufList list = takePendingRead(buf.base);
    list.front().setLength(static_cast<std::uint64_t>(nread));
    onRead(std::move(list), 0);
}

void OBaseSocket::pauseReading(uv_stream_t* stream) {
    // On Windows libuv spins until the current frame is complete: a peer that wrote a frame in two parts kept the loop
    // busy, and one that never wrote the second part did so forever. After a stop and a start libuv waits (SplitFrame
    // tests). Starting right here would cancel the stop.
    uv_read_stop(stream);
    mReadingPaused = true;
    if (mLoop == nullptr) {
        return;
    }
    try {
        mLoop->post([this, alive = alive()] {
            if (!alive.expired() && mReadingPaused && !readStart()) {
                onError(UV_ENOTCONN);
            }
        });
    } catch (const std::bad_alloc&) {
        readStart(); // spins, but reads on
    }
}

// libuv may hold several buffers; the address of the first byte identifies the one it filled. Moved, not copied: received
// bytes must survive an allocation failure.
OBufList OBaseSocket::takePendingRead(const char* base) {
    OBufList taken;
    const auto place = std::find_if(pendingReads.begin(), pendingReads.end(), [base](const OBufView& view) {
        return reinterpret_cast<const char*>(view.data()) == base;
    });
    if (place == pendingReads.end()) {
        taken.push_back(OBufView());
    } else {
        taken.push_back(std::move(*place));
        pendingReads.erase(place);
    }
    return taken;
}
