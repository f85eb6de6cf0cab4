#include "transport/uv_loop.h"

#include "platform/host_settings.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>

namespace transport {

namespace {

template <typename T>
using MallocPtr = std::unique_ptr<T, void (*)(void*)>;

template <typename T>
MallocPtr<T> allocateZeroed() {
    MallocPtr<T> memory(static_cast<T*>(std::calloc(1, sizeof(T))), std::free);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void require(int result, const char* call) {
    if (result == UV_ENOMEM) {
        throw std::bad_alloc();
    }
    if (result != 0) {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

// Created once for all threads, together with everything that libuv sets up once for a process: two loops may be created
// at the same time, and uv_default_loop has no lock of its own. The settings are saved inside the lock, too: a second
// thread would save the ones that libuv has just changed as the host's.
uv_loop_t* defaultLoop() {
    static uv_loop_t* const kLoop = [] {
        const platform::HostSettingsGuard hostSettings;
        return uv_default_loop();
    }();
    return kLoop;
}

bool hasClosingHandle(uv_loop_t* loop) {
    bool found = false;
    uv_walk(
        loop,
        [](uv_handle_t* handle, void* result) {
            *static_cast<bool*>(result) = *static_cast<bool*>(result) || uv_is_closing(handle) != 0;
        },
        &found);
    return found;
}

} // namespace

UvLoop makeUvLoop(uv_async_cb onAsync, void* owner) {
    defaultLoop();
    MallocPtr<uv_loop_t> loop = allocateZeroed<uv_loop_t>();
    MallocPtr<uv_async_t> async = allocateZeroed<uv_async_t>();
    require(uv_loop_init(loop.get()), "uv_loop_init");
    async->data = owner;
    if (const int result = uv_async_init(loop.get(), async.get(), onAsync); result != 0) {
        uv_loop_close(loop.get());
        require(result, "uv_async_init");
    }
    return {loop.release(), async.release()};
}

void closeUnrun(const UvLoop& made) {
    uv_close(reinterpret_cast<uv_handle_t*>(made.async), nullptr);
    while (hasClosingHandle(made.loop)) {
        uv_run(made.loop, UV_RUN_ONCE);
    }
}

void destroyUvLoop(const UvLoop& made) {
    uv_loop_close(made.loop);
    if (made.loop != defaultLoop()) {
        std::free(made.loop);
    }
    std::free(made.async);
}

} // namespace transport
