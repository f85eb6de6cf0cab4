#include "transport/socket.h"

#include "transport/loop_log.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace {

/// What is read at once, in bytes. Between processes libuv asks for as much as the frame under way announces: memory is
/// for bytes that have arrived.
constexpr std::size_t kMostRead = 65536;

/// Must not throw: called from libuv.
void noteLackOfMemory(const char* function, int line) {
    logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", function, line);
}

OBaseSocket* ownerOf(const uv_handle_t* handle) {
    return static_cast<OBaseSocket*>(static_cast<OBaseHandle*>(handle->data));
}

/// When memory runs out the request is left without bytes.
void fill(OWriteReq& req, const OBufList& list) {
    try {
        req.views = list;
        req.bufs.reserve(list.size());
    } catch (const std::bad_alloc&) {
        req.views.clear();
        throw;
    }
    for (const OBufView& view : list) {
        uv_buf_t buf = {};
        buf.base = reinterpret_cast<char*>(view.data());
        buf.len = static_cast<decltype(buf.len)>(view.length);
        req.bufs.push_back(buf);
    }
    req.req.data = &req;
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
    OWriteReq* req = acquireWriteReq(list);
    const auto count = static_cast<unsigned int>(req->bufs.size());
    const int result = uv_write(&req->req, stream, req->bufs.data(), count, writeCb);
    if (result == 0) {
        return true;
    }
    recycle(req);
    if (result == UV_ENOMEM) {
        throw std::bad_alloc();
    }
    noteBroken();
    return false;
}

void OBaseSocket::writeCb(uv_write_t* req, int status) {
    auto* write = static_cast<OWriteReq*>(req->data);
    if (write->owner != nullptr) {
        if (status < 0) {
            write->owner->noteBroken();
        }
        try {
            write->owner->onWrite(write->views, status);
        } catch (const std::bad_alloc&) {
            noteLackOfMemory("OBaseSocket::writeCb", __LINE__);
        }
    }
    if (write->owner == nullptr) { // gone before, or in its own callback
        delete write;
        return;
    }
    write->owner->recycle(write);
}

// Whatever memory is refused, the lists are as they were: the request becomes active when it is filled.
OWriteReq* OBaseSocket::acquireWriteReq(const OBufList& list) {
    std::list<OWriteReq*> taken;
    {
        const std::lock_guard guard(writeMutex);
        if (!freeWriteReqs.empty()) {
            taken.splice(taken.end(), freeWriteReqs, freeWriteReqs.begin());
        }
    }
    std::unique_ptr<OWriteReq> fresh;
    if (taken.empty()) {
        fresh = std::make_unique<OWriteReq>();
        taken.push_back(fresh.get());
    }
    OWriteReq* req = taken.front();
    try {
        fill(*req, list);
    } catch (const std::bad_alloc&) {
        if (fresh == nullptr) {
            const std::lock_guard guard(writeMutex);
            freeWriteReqs.splice(freeWriteReqs.end(), taken);
        }
        throw;
    }
    static_cast<void>(fresh.release()); // the socket's from here on
    req->inUse = 1;
    req->owner = this;
    const std::lock_guard guard(writeMutex);
    activeWriteReqs.splice(activeWriteReqs.end(), taken);
    return req;
}

void OBaseSocket::recycle(OWriteReq* req) {
    const std::lock_guard guard(writeMutex);
    if (req->inUse == 0) {
        return; // GCOVR_EXCL_LINE no write request is given back twice
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
        owner->pendingReads.append(std::move(lent));
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
        noteLackOfMemory("OBaseSocket::readCb", __LINE__);
        uv_read_stop(stream); // bytes are missing: what follows them means nothing
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
    if (nread < 0 && nread != UV_ENOBUFS) { // without a block to read into, the stream itself is well
        noteBroken();
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
    // On Windows libuv asks again at once, and does nothing else, until the frame under way is whole: a peer that writes
    // a frame in two parts kept the loop busy, and one that never writes the second did so for ever. Stopped and started
    // anew it waits (SplitFrame tests). Started in here it would not have been stopped.
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
        readStart(); // busy, but it reads on
    }
}

// libuv may have several buffers out; the one it filled is known by its first byte. Moved and not copied: the bytes that
// have arrived must not depend on memory that may be refused.
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
