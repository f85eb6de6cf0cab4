// The writing half of a socket: pooled requests, each of which libuv holds until its write has completed.

#include "transport/loop_log.h"
#include "transport/socket.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>

namespace {

/// Throws std::bad_alloc; the request then has no bytes.
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
    markBroken();
    return false;
}

void OBaseSocket::writeCb(uv_write_t* req, int status) {
    auto* write = static_cast<OWriteReq*>(req->data);
    if (write->owner != nullptr) {
        if (status < 0) {
            write->owner->markBroken();
        }
        try {
            write->owner->onWrite(write->views, status);
        } catch (const std::bad_alloc&) {
            logLoopLine(kLogError, kLogTagDefault, "[%s:%d]out of memory", "OBaseSocket::writeCb", __LINE__);
        }
    }
    if (write->owner == nullptr) { // destroyed before, or in its own callback
        delete write;
        return;
    }
    write->owner->recycle(write);
}

// An allocation failure leaves the lists as they were: a request becomes active once it is filled.
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
    static_cast<void>(fresh.release()); // the socket owns it from here on
    req->inUse = 1;
    req->owner = this;
    const std::lock_guard guard(writeMutex);
    activeWriteReqs.splice(activeWriteReqs.end(), taken);
    return req;
}

void OBaseSocket::recycle(OWriteReq* req) {
    const std::lock_guard guard(writeMutex);
    if (req->inUse == 0) {
        return; // GCOVR_EXCL_LINE no write request is recycled twice
    }
    const auto place = std::find(activeWriteReqs.begin(), activeWriteReqs.end(), req);
    if (place != activeWriteReqs.end()) {
        freeWriteReqs.splice(freeWriteReqs.end(), activeWriteReqs, place);
    }
    req->inUse = 0;
    req->views.clear();
    req->bufs.clear();
}
