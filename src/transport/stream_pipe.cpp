#include "transport/stream_pipe.h"

#include <array>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

constexpr const char* kDefaultPipeNamePrefix = R"(\\.\pipe\uv_pipe.)";

std::string nameFrom(int (*getName)(const uv_pipe_t*, char*, size_t*), const uv_pipe_t* pipe) {
    std::array<char, 257> text = {}; // one more than libuv may fill: a name of 256 bytes still ends
    size_t size = text.size() - 1;
    if (pipe != nullptr) {
        getName(pipe, text.data(), &size);
    }
    return text.data();
}

} // namespace

std::string OStreamPipe::pipeNamePrefix;

OStreamPipe::OStreamPipe(std::shared_ptr<OUVLoop> loop)
    : OBaseSocket(std::move(loop)), pipe(nullptr, std::free) {}

OStreamPipe::~OStreamPipe() {
    releaseOnDestruction();
    forgetPipe();
    if (mConnectInFlight.load()) {
        connectReq.release()->data = nullptr; // the pending callback frees it
    }
}

// For a pipe that is libuv's alone now: its close frees the memory.
void OStreamPipe::forgetPipe() {
    static_cast<void>(pipe.release());
    initialized = false;
}

uv_handle_t* OStreamPipe::handle() {
    return reinterpret_cast<uv_handle_t*>(pipe.get());
}

void OStreamPipe::releaseHandle() {
    pipe.reset();
}

void OStreamPipe::onClosed() {
    if (eventCallback) {
        eventCallback(this, kClosed, 0);
    }
    releaseHandle();
    initialized = false;
}

bool OStreamPipe::readStart() {
    mReadingPaused = false;
    return pipe != nullptr && uv_read_start(stream(), allocCb, readCb) == 0;
}

bool OStreamPipe::readStop() {
    mReadingPaused = false;
    return pipe != nullptr && uv_read_stop(stream()) == 0;
}

bool OStreamPipe::write(const OBufList& list) {
    // Some systems make a pipe writable before its connect has been reported; bytes sent then would overtake
    // what the owner sends first.
    return !mConnectInFlight.load() && writeTo(stream(), list);
}

void OStreamPipe::init() {
    if (initialized || mLoop == nullptr) {
        return;
    }
    pipe.reset(static_cast<uv_pipe_t*>(std::calloc(1, sizeof(uv_pipe_t))));
    if (pipe == nullptr) {
        return;
    }
    uv_pipe_init(mLoop->uvLoop(), pipe.get(), 1);
    pipe->data = static_cast<OBaseHandle*>(this);
    initialized = true;
    mConnectFailed = false;
}

bool OStreamPipe::connect(const std::string& name) {
    if (mLoop == nullptr || connecting.exchange(true)) {
        return false;
    }
    std::string fullName = (pipeNamePrefix.empty() ? kDefaultPipeNamePrefix : pipeNamePrefix) + name;
    mLoop->dispatch([this, fullName = std::move(fullName)] { openConnection(fullName); });
    return true;
}

void OStreamPipe::openConnection(const std::string& fullName) {
    // libuv tries a pipe once: on Windows it calls one that has failed busy ever after, elsewhere it connects it
    // and then neither reads nor writes.
    if (mConnectFailed && pipe != nullptr) {
        abandonHandle();
        forgetPipe();
    }
    init();
    if (connectReq == nullptr) {
        connectReq = std::make_unique<uv_connect_t>();
    }
    *connectReq = {};
    connectReq->data = this;
    if (pipe == nullptr) {
        // Elsewhere the caller holds the loop's lock, and no callback may run under that.
        if (!mLoop->onLoopThread()) {
            connecting = false;
            throw std::bad_alloc();
        }
        finishConnection(connectReq.get(), UV_ENOMEM);
        return;
    }
    // Another thread asked for this connection in the moment in which an earlier one completed. libuv would
    // answer with an error, and the owner would take a good connection for a failed one.
    if (uv_is_writable(stream()) != 0) {
        finishConnection(connectReq.get(), 0);
        return;
    }
    mConnectInFlight = true;
    uv_pipe_connect(connectReq.get(), pipe.get(), fullName.c_str(), connectCb);
}

void OStreamPipe::connectCb(uv_connect_t* req, int status) {
    auto* owner = static_cast<OStreamPipe*>(req->data);
    if (owner == nullptr) {
        delete req;
        return;
    }
    owner->mConnectInFlight = false;
    owner->mConnectFailed = status != 0;
    owner->finishConnection(req, status);
}

void OStreamPipe::finishConnection(uv_connect_t* req, std::int32_t status) {
    connecting = false;
    onConnect(req, status);
}

void OStreamPipe::onConnect(uv_connect_t* /*req*/, std::int32_t status) {
    if (eventCallback) {
        eventCallback(this, kConnected, status);
    }
}

bool OStreamPipe::accept(uv_stream_t* server) {
    init();
    if (pipe == nullptr) {
        return false;
    }
    pipe->data = static_cast<OBaseHandle*>(this);
    const int result = uv_accept(server, stream());
    onAccept(result);
    return result == 0;
}

void OStreamPipe::onAccept(std::int32_t status) {
    if (eventCallback) {
        eventCallback(this, kConnected, status);
    }
}

std::string OStreamPipe::localName() {
    return nameFrom(uv_pipe_getsockname, pipe.get());
}

std::string OStreamPipe::peerName() {
    return nameFrom(uv_pipe_getpeername, pipe.get());
}
