#include "pipe_server.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace standin {

namespace {

struct WriteRequest {
    uv_write_t request{};
    std::string bytes;
};

uv_stream_t* streamOf(uv_pipe_t* pipe) {
    return reinterpret_cast<uv_stream_t*>(pipe);
}

void closeAndFree(uv_pipe_t* pipe) {
    pipe->data = nullptr;
    uv_close(reinterpret_cast<uv_handle_t*>(pipe),
             [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
}

} // namespace

PipeServer::PipeServer(uv_loop_t* loop, std::string pipeName, Events events)
    : mLoop(loop), mPipeName(std::move(pipeName)), mEvents(std::move(events)), mReadBuffer{} {
    uv_timer_init(mLoop, &mPause);
    mPause.data = this;
}

int PipeServer::listen() {
    if (mListener != nullptr) {
        return 0;
    }
    auto* listener = new uv_pipe_t;
    uv_pipe_init(mLoop, listener, 0);
    listener->data = this;
#ifndef _WIN32
    // There the name is a socket file, and one that a killed service left would keep the name taken.
    std::remove(mPipeName.c_str());
#endif
    int result = uv_pipe_bind(listener, mPipeName.c_str());
    if (result == 0) {
        result = uv_listen(streamOf(listener), 8, onConnection);
    }
    if (result != 0) {
        closeAndFree(listener);
        return result;
    }
    mListener = listener;
    return 0;
}

void PipeServer::stopListening() {
    if (mListener != nullptr) {
        closeAndFree(std::exchange(mListener, nullptr));
    }
}

void PipeServer::onConnection(uv_stream_t* listener, int status) {
    auto* self = static_cast<PipeServer*>(listener->data);
    if (self != nullptr && status == 0) {
        self->accept();
    }
}

void PipeServer::accept() {
    auto* pipe = new uv_pipe_t;
    uv_pipe_init(mLoop, pipe, 1);
    pipe->data = this;
    if (uv_accept(streamOf(mListener), streamOf(pipe)) != 0 || mConnection != nullptr) {
        closeAndFree(pipe); // a second client at the same time is turned away
        return;
    }
    mConnection = pipe;
    if (mReading) {
        startReading();
    }
    mEvents.connected();
}

void PipeServer::startReading() {
    uv_read_start(streamOf(mConnection), onAlloc, onRead);
}

void PipeServer::setReading(bool on) {
    mReading = on;
    if (mConnection == nullptr) {
        return;
    }
    if (on) {
        startReading();
    } else {
        uv_read_stop(streamOf(mConnection));
    }
}

void PipeServer::readSlowly(std::size_t bytes, std::uint64_t pauseMs) {
    mReadSize = std::clamp<std::size_t>(bytes, 1, sizeof mReadBuffer);
    mPauseMs = pauseMs;
}

void PipeServer::pauseReading() {
    uv_read_stop(streamOf(mConnection));
    uv_timer_start(
        &mPause,
        [](uv_timer_t* timer) {
            auto* self = static_cast<PipeServer*>(timer->data);
            if (self->mReading && self->mConnection != nullptr) {
                self->startReading();
            }
        },
        mPauseMs, 0);
}

void PipeServer::onAlloc(uv_handle_t* handle, std::size_t /*suggested*/, uv_buf_t* buffer) {
    auto* self = static_cast<PipeServer*>(handle->data);
    *buffer = self == nullptr ? uv_buf_init(nullptr, 0)
                              : uv_buf_init(self->mReadBuffer, static_cast<unsigned>(self->mReadSize));
}

void PipeServer::onRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
    auto* self = static_cast<PipeServer*>(stream->data);
    if (self == nullptr || count == 0) {
        return;
    }
    if (count > 0) {
        self->mEvents.received({buffer->base, static_cast<std::size_t>(count)});
        if (self->mPauseMs != 0 && streamOf(self->mConnection) == stream) {
            self->pauseReading();
        }
        return;
    }
    self->disconnect();
    self->mEvents.disconnected(static_cast<int>(count));
}

bool PipeServer::write(std::string bytes) {
    if (mConnection == nullptr) {
        return false;
    }
    auto* request = new WriteRequest;
    request->bytes = std::move(bytes);
    request->request.data = request;
    uv_buf_t buffer = uv_buf_init(request->bytes.data(), static_cast<unsigned>(request->bytes.size()));
    const int result = uv_write(&request->request, streamOf(mConnection), &buffer, 1,
                                [](uv_write_t* done, int) { delete static_cast<WriteRequest*>(done->data); });
    if (result != 0) {
        delete request;
    }
    return result == 0;
}

std::size_t PipeServer::unwritten() const {
    return mConnection == nullptr ? 0 : uv_stream_get_write_queue_size(streamOf(mConnection));
}

void PipeServer::disconnect() {
    if (mConnection != nullptr) {
        closeAndFree(std::exchange(mConnection, nullptr));
    }
}

} // namespace standin
