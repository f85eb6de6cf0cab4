#include "transport/socket.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace {

/// What is read at once, in bytes. Between processes libuv asks for as much as the frame under way announces: memory is
/// for bytes that have arrived.
constexpr std::size_t kMostRead = 65536;

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

bool OBaseSocket::writeTo(uv_stream_t* stream, const OBufList& list) {
    if (stream == nullptr || list.empty() || uv_is_writable(stream) == 0) {
        return false;
    }
    OWriteReq* req = acquireWriteReq();
    for (const OBufView& view : list) {
        uv_buf_t buf = {};
        buf.base = reinterpret_cast<char*>(view.data());
        buf.len = static_cast<decltype(buf.len)>(view.length);
        req->bufs.push_back(buf);
    }
    req->views = list;
    req->req.data = req;
    const auto count = static_cast<unsigned int>(req->bufs.size());
    if (uv_write(&req->req, stream, req->bufs.data(), count, writeCb) == 0) {
        return true;
    }
    recycle(req);
    return false;
}

void OBaseSocket::writeCb(uv_write_t* req, int status) {
    auto* write = static_cast<OWriteReq*>(req->data);
    if (write->owner != nullptr) {
        write->owner->onWrite(write->views, status);
    }
    if (write->owner == nullptr) { // gone before, or in its own callback
        delete write;
        return;
    }
    write->owner->recycle(write);
}

OWriteReq* OBaseSocket::acquireWriteReq() {
    const std::lock_guard guard(writeMutex);
    OWriteReq* req = nullptr;
    if (freeWriteReqs.empty()) {
        req = new OWriteReq;
        activeWriteReqs.push_back(req);
    } else {
        req = freeWriteReqs.front();
        activeWriteReqs.splice(activeWriteReqs.end(), freeWriteReqs, freeWriteReqs.begin());
    }
    req->inUse = 1;
    req->owner = this;
    return req;
}

void OBaseSocket::recycle(OWriteReq* req) {
    const std::lock_guard guard(writeMutex);
    if (req->inUse == 0) {
        return;
    }
    const auto place = std::find(activeWriteReqs.begin(), activeWriteReqs.end(), req);
    if (place != activeWriteReqs.end()) {
        freeWriteReqs.splice(freeWriteReqs.end(), activeWriteReqs, place);
    }
    req->inUse = 0;
    req->views.clear();
    req->bufs.clear();
}

void OBaseSocket::allocCb(uv_handle_t* handle, std::size_t suggestedSize, uv_buf_t* buf) {
    OBaseSocket* owner = ownerOf(handle);
    const std::size_t size = std::min(suggestedSize, kMostRead);
    try {
        // A block that nothing was read into serves once more: a peer that stutters would leave one each time.
        OBufList lent = owner->takePendingRead(std::exchange(owner->mUnfilled, nullptr));
        OBufView& view = lent.front();
        if (view.length < size) {
            view.reset(size);
        }
        buf->base = reinterpret_cast<char*>(view.data());
        buf->len = static_cast<decltype(buf->len)>(std::min<std::uint64_t>(view.length, size));
        owner->pendingReads.splice(owner->pendingReads.end(), lent);
    } catch (const std::bad_alloc&) {
        *buf = {}; // libuv reports UV_ENOBUFS, as it does for a block that could not be had
    }
}

void OBaseSocket::readCb(uv_stream_t* stream, ssize_t nread, const uv_buf_t* buf) {
    OBaseSocket* owner = ownerOf(reinterpret_cast<uv_handle_t*>(stream));
    if (owner == nullptr) {
        return;
    }
    if (nread == 0) {
        owner->mUnfilled = buf->base;
        owner->pauseReading(stream);
    }
    if (nread <= 0) {
        owner->onError(static_cast<std::int32_t>(nread));
        return;
    }
    OBufList list = owner->takePendingRead(buf->base);
    list.front().setLength(static_cast<std::uint64_t>(nread));
    owner->onRead(std::move(list), 0);
}

void OBaseSocket::pauseReading(uv_stream_t* stream) {
    // On Windows libuv asks again at once, and does nothing else, until the frame under way is whole: a peer that writes
    // a frame in two parts kept the loop busy, and one that never writes the second did so for ever. Stopped and started
    // anew it waits (SplitFrame tests). Started in here it would not have been stopped.
    uv_read_stop(stream);
    mReadingPaused = true;
    if (mLoop == nullptr) {
        return;
    }
    try {
        mLoop->post([this, alive = std::weak_ptr<const bool>(mAlive)] {
            if (!alive.expired() && mReadingPaused) {
                readStart();
            }
        });
    } catch (const std::bad_alloc&) {
        readStart(); // busy, but it reads on
    }
}

// libuv may have several buffers out; the one it filled is known by its first byte. Moved and not copied, because memory
// that runs out must not be told by an exception here.
OBufList OBaseSocket::takePendingRead(const char* base) {
    OBufList taken;
    const auto place = std::find_if(pendingReads.begin(), pendingReads.end(), [base](const OBufView& view) {
        return reinterpret_cast<const char*>(view.data()) == base;
    });
    if (place == pendingReads.end()) {
        taken.emplace_back();
    } else {
        taken.splice(taken.end(), pendingReads, place);
    }
    return taken;
}
