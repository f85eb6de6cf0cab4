#include "pipe_end.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

namespace {

struct Write {
    uv_write_t req = {};
    std::string bytes;
};

void require(int result, const char* call) {
    if (result != 0) {
        std::fprintf(stderr, "%s: %s\n", call, uv_strerror(result));
        std::exit(2);
    }
}

PipeEnd* ownerOf(const void* data) {
    return static_cast<PipeEnd*>(const_cast<void*>(data));
}

} // namespace

PipeEnd::PipeEnd(Role role, const std::string& name, Received received) : mReceived(std::move(received)) {
    require(uv_loop_init(&mLoop), "uv_loop_init");
    mWake.data = this;
    require(uv_async_init(&mLoop, &mWake, runTasks), "uv_async_init");
    open(role, name);
    mThread = std::thread([this] { uv_run(&mLoop, UV_RUN_DEFAULT); });
    if (role == Role::Client) {
        waitForConnection();
    }
}

PipeEnd::~PipeEnd() {
    post([this] {
        closeConnection();
        if (mListener.data != nullptr) {
            uv_close(reinterpret_cast<uv_handle_t*>(&mListener), nullptr);
        }
        uv_close(reinterpret_cast<uv_handle_t*>(&mWake), nullptr);
    });
    mThread.join();
    uv_loop_close(&mLoop);
}

void PipeEnd::open(Role role, const std::string& name) {
    mConnection.data = this;
    if (role == Role::Client) {
        require(uv_pipe_init(&mLoop, &mConnection, 1), "uv_pipe_init");
        mConnect.data = this;
        uv_pipe_connect(&mConnect, &mConnection, name.c_str(), [](uv_connect_t* req, int status) {
            require(status, "uv_pipe_connect");
            ownerOf(req->data)->startReading();
        });
        return;
    }
    require(uv_pipe_init(&mLoop, &mListener, 0), "uv_pipe_init"); // libuv frames connections, never listeners
    mListener.data = this;
    require(uv_pipe_bind(&mListener, name.c_str()), "uv_pipe_bind");
    require(uv_listen(reinterpret_cast<uv_stream_t*>(&mListener), 1,
                      [](uv_stream_t* listener, int status) {
                          require(status, "uv_listen");
                          PipeEnd* self = ownerOf(listener->data);
                          require(uv_pipe_init(&self->mLoop, &self->mConnection, 1), "uv_pipe_init");
                          require(uv_accept(listener, reinterpret_cast<uv_stream_t*>(&self->mConnection)),
                                  "uv_accept");
                          self->startReading();
                      }),
            "uv_listen");
}

void PipeEnd::startReading() {
    const auto allocate = [](uv_handle_t* handle, std::size_t, uv_buf_t* buf) {
        PipeEnd* self = ownerOf(handle->data);
        buf->base = self->mBuffer;
        buf->len = sizeof self->mBuffer;
    };
    const auto take = [](uv_stream_t* stream, ssize_t count, const uv_buf_t* buf) {
        PipeEnd* self = ownerOf(stream->data);
        if (count < 0) {
            self->closeConnection();
        } else if (count > 0) {
            self->mReceived(buf->base, static_cast<std::size_t>(count));
        }
    };
    mIsOpen = true;
    require(uv_read_start(reinterpret_cast<uv_stream_t*>(&mConnection), allocate, take), "uv_read_start");
    become(true);
}

void PipeEnd::closeConnection() {
    if (std::exchange(mIsOpen, false)) {
        uv_close(reinterpret_cast<uv_handle_t*>(&mConnection), nullptr);
        become(false);
    }
}

void PipeEnd::become(bool connected) {
    {
        const std::lock_guard guard(mMutex);
        mIsConnected = connected;
    }
    mChanged.notify_all();
}

void PipeEnd::waitForConnection() {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [this] { return mIsConnected; });
}

void PipeEnd::post(std::function<void()> task) {
    {
        const std::lock_guard guard(mMutex);
        mTasks.push_back(std::move(task));
    }
    uv_async_send(&mWake);
}

void PipeEnd::postAndWait(std::function<void()> task) {
    bool done = false;
    post([this, &done, &task] {
        task();
        {
            const std::lock_guard guard(mMutex);
            done = true;
        }
        mChanged.notify_all();
    });
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&done] { return done; });
}

void PipeEnd::runTasks(uv_async_t* wake) {
    PipeEnd* self = ownerOf(wake->data);
    std::list<std::function<void()>> tasks;
    {
        const std::lock_guard guard(self->mMutex);
        tasks.swap(self->mTasks);
    }
    for (const auto& task : tasks) {
        task();
    }
}

void PipeEnd::write(std::string bytes) {
    auto owned = std::make_unique<Write>();
    owned->bytes = std::move(bytes);
    const uv_buf_t buf = uv_buf_init(owned->bytes.data(), static_cast<unsigned>(owned->bytes.size()));
    require(uv_write(&owned->req, reinterpret_cast<uv_stream_t*>(&mConnection), &buf, 1,
                     [](uv_write_t* req, int) {
                         const std::unique_ptr<Write> done(reinterpret_cast<Write*>(req));
                     }),
            "uv_write");
    static_cast<void>(owned.release()); // libuv's
}

std::string freshPipePrefix() {
    static int serial = 0;
    const std::string name =
        "sonvia_bench_" + std::to_string(uv_os_getpid()) + "_" + std::to_string(serial++) + ".";
#ifdef _WIN32
    return R"(\\.\pipe\)" + name;
#else
    return (std::filesystem::temp_directory_path() / name).string();
#endif
}
