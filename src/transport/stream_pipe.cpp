#include "transport/stream_pipe.h"

#include "platform/pipe_peer.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace {

std::string nameFrom(int (*getName)(const uv_pipe_t*, char*, size_t*), const uv_pipe_t* pipe) {
    std::array<char, 257> text = {}; // one more than libuv may fill: a name of 256 bytes is still terminated
    size_t size = text.size() - 1;
    if (pipe != nullptr) {
        getName(pipe, text.data(), &size);
    }
    return text.data();
}

} // namespace

OStreamPipe::OStreamPipe(std::shared_ptr<OUVLoop> loop)
    : OBaseSocket(std::move(loop)), pipe(nullptr, std::free),
      mTransferCheck(mLoop, [this] { refuseTransfers(); }) {}

OStreamPipe::~OStreamPipe() {
    const bool connectInFlight = mLink.load() == Link::Connecting;
    releaseOnDestruction();
    detachPipe();
    if (connectInFlight) {
        connectReq.release()->data = nullptr; // the pending callback frees it
    }
}

// libuv owns the pipe now: closing frees the memory.
void OStreamPipe::detachPipe() {
    static_cast<void>(pipe.release());
    initialized = false;
    mHasEnd = false;
    mLink = Link::None;
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
    mHasEnd = false;
    mLink = Link::None;
}

bool OStreamPipe::readStart() {
    mReadingPaused = false;
    if (pipe == nullptr || uv_read_start(stream(), allocCb, readCb) != 0) {
        return false;
    }
    mTransferCheck.start();
    return true;
}

bool OStreamPipe::readStop() {
    mReadingPaused = false;
    return pipe != nullptr && uv_read_stop(stream()) == 0;
}

bool OStreamPipe::write(const OBufList& list) {
    const Link link = mLink.load();
    // On some systems a pipe is writable before its connect has been reported; bytes sent then would overtake what the
    // owner sends first.
    if (link == Link::Connecting) {
        return false;
    }
    // On Windows libuv leaks its copy of bytes that the system refuses at once, which it does without a peer
    // (stress_memory).
    return (link == Link::None || hasPeer()) && writeTo(stream(), list);
}

void OStreamPipe::init() {
    if (initialized || !mTransferCheck.init()) {
        return;
    }
    pipe.reset(static_cast<uv_pipe_t*>(std::calloc(1, sizeof(uv_pipe_t))));
    if (pipe == nullptr) {
        return; // GCOVR_EXCL_LINE an allocation failure
    }
    uv_pipe_init(mLoop->uvLoop(), pipe.get(), 1);
    pipe->data = static_cast<OBaseHandle*>(this);
    initialized = true;
    mLink = Link::None;
}

void OStreamPipe::interruptReading() {
    mLoop->interrupt([this] {
        if (mHasEnd.load()) {
            platform::cancelPipe(mEnd.load());
        }
    });
}

std::size_t OStreamPipe::unsentBytes() const {
    return pipe != nullptr ? uv_stream_get_write_queue_size(stream()) : 0;
}

// Asks the system: without reading, libuv does not report that the peer has gone.
bool OStreamPipe::hasPeer() const {
    uv_os_fd_t end = {};
    return pipe != nullptr && uv_fileno(reinterpret_cast<const uv_handle_t*>(pipe.get()), &end) == 0 &&
           platform::pipeHasPeer(end);
}

void OStreamPipe::markBroken() {
    if (mLink.load() == Link::Healthy) {
        mLink = Link::UsedUp;
    }
}

// libuv would keep every socket that a peer passes until the pipe is closed. The service passes none: a transfer is an
// invalid frame.
bool OStreamPipe::refuseTransfers() {
    if (pipe == nullptr || uv_is_closing(handle()) != 0 || uv_pipe_pending_count(pipe.get()) == 0) {
        return false;
    }
    mTransferCheck.stop();
    readStop();
    markBroken();
    onError(UV_ECONNABORTED);
    return true;
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
    mLink = result == 0 ? Link::Healthy : Link::None;
    mConnectedName.clear(); // has no name: a later connect is for another peer
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
