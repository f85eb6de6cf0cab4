#pragma once

#include "transport/buf_list.h"
#include "transport/handle.h"
#include "transport/mutex.h"

#include <uv.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <vector>

class OBaseSocket;

/// One write handed to libuv. Owned by its socket's lists; if the socket is destroyed first, the completion deletes it.
struct OWriteReq {
    std::uint32_t inUse = 0;      ///< 1 while in activeWriteReqs
    OBaseSocket* owner = nullptr; ///< null once the socket is gone
    uv_write_t req = {};          ///< its data points to this record
    std::vector<uv_buf_t> bufs;
    OBufList views; ///< keeps the bytes alive until completion
};

/// A byte stream over a libuv handle: reads into fresh shared buffers, pooled write requests, three
/// callbacks. All libuv callbacks, and so every on... operation, run on the loop thread.
class OBaseSocket : public OBaseHandle {
public:
    enum Event : std::int32_t { kConnected = 1, kClosed = 2, kReadError = 3 };

    using ReadCallback = std::function<void(OBaseSocket*, OBufList, std::int32_t)>;
    using WriteCallback = std::function<void(OBaseSocket*, OBufList, std::int32_t)>;
    using EventCallback = std::function<void(OBaseSocket*, std::int32_t, std::int32_t)>;

    explicit OBaseSocket(std::shared_ptr<OUVLoop> loop);
    ~OBaseSocket() override;

    void clearCallbacks() override;
    virtual bool readStart() = 0;
    virtual bool readStop() = 0;
    /// Hands the views to libuv in one write; they stay shared until it completes. Where libuv may be entered
    /// (OUVLoop::dispatch); the request pool itself may be used by any thread. False when there is no writable stream or
    /// libuv refuses; no callback follows then. Throws std::bad_alloc; nothing has been written then.
    virtual bool write(const OBufList& list) = 0;
    virtual void onRead(OBufList list, std::int32_t status);
    /// End of stream or a read error: `status` is libuv's, 0 for a read of no bytes.
    virtual void onError(std::int32_t status);
    virtual void onWrite(const OBufList& list, std::int32_t status);
    virtual OUVLoop* loop();
    /// Takes ownership of `loop` under a fresh shared owner.
    virtual void setLoop(OUVLoop* loop);

    void setReadCallback(ReadCallback callback);
    void setWriteCallback(WriteCallback callback);
    void setEventCallback(EventCallback callback);

protected:
    /// The stream has ended, failed or refused a write. Where libuv may be entered.
    virtual void markBroken() {}

    /// Refuses a peer that passes handles along the stream: stops reading, reports the error and returns true.
    virtual bool refuseTransfers() { return false; }

    /// A request filled from `list`, among the active ones. Any thread.
    OWriteReq* acquireWriteReq(const OBufList& list);
    /// Appends a request to the free ones. Any thread.
    void recycle(OWriteReq* req);

    /// The common part of write: pools a request, fills it from `list` and gives it to libuv.
    bool writeTo(uv_stream_t* stream, const OBufList& list);

    /// Expires with this object: for tasks and calls that may outlive it.
    std::weak_ptr<const bool> alive() const { return mAlive; }

    static void allocCb(uv_handle_t* handle, std::size_t suggestedSize, uv_buf_t* buf);
    static void readCb(uv_stream_t* stream, ssize_t nread, const uv_buf_t* buf);

    OMutex writeMutex; ///< guards the two request lists and nothing else
    std::list<OWriteReq*> freeWriteReqs;
    std::list<OWriteReq*> activeWriteReqs;
    OBufList pendingReads;       ///< given to libuv and not yet filled; loop thread only
    bool mReadingPaused = false; ///< see pauseReading; ended by readStart and readStop; loop thread only
    ReadCallback readCallback;
    WriteCallback writeCallback;
    EventCallback eventCallback;

private:
    static void writeCb(uv_write_t* req, int status);
    void handleRead(uv_stream_t* stream, ssize_t nread, const uv_buf_t& buf);
    /// After a read of 0 bytes: stops reading, and starts it again after the loop's other events.
    void pauseReading(uv_stream_t* stream);
    /// The pending block that begins at `base`, as a list of one view; an empty view if there is none.
    OBufList takePendingRead(const char* base);

    const char* mUnfilled = nullptr; ///< the pending block that the last read did not fill
    std::shared_ptr<const bool> mAlive = std::make_shared<const bool>(true);
};
