// Where the tap listens: the linker puts these in front of three of libuv's functions (--wrap). The library's own code
// is that of the product, to the byte. Nothing here throws, and no lock is held while libuv or the library runs.
#include <map>
#include <memory>
#include <mutex>

#include <uv.h>
#include <windows.h>

#include "capture.h"
#include "log/write_log.h"

extern "C" {
int __real_uv_read_start(uv_stream_t* stream, uv_alloc_cb alloc, uv_read_cb read);
int __real_uv_write(uv_write_t* request, uv_stream_t* stream, const uv_buf_t* buffers, unsigned count,
                    uv_write_cb done);
void __real_uv_close(uv_handle_t* handle, uv_close_cb closed);
int __wrap_uv_read_start(uv_stream_t* stream, uv_alloc_cb alloc, uv_read_cb read);
int __wrap_uv_write(uv_write_t* request, uv_stream_t* stream, const uv_buf_t* buffers, unsigned count,
                    uv_write_cb done);
void __wrap_uv_close(uv_handle_t* handle, uv_close_cb closed);
}

namespace {

/// A stream that the library reads. `capture` is null when none was asked for.
struct Tapped {
    uv_read_cb read = nullptr;
    std::shared_ptr<tap::Capture> capture;
};

struct Streams {
    std::mutex mutex;
    std::map<const void*, Tapped> all;
};

/// Outlives the module on purpose: when a process ends, the loop's thread may have been stopped anywhere in here.
Streams& streams() {
    static auto* const kStreams = new Streams;
    return *kStreams;
}

/// Asked of the system: the C runtime's copy of the environment lacks what the host has set since.
std::wstring environment(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

std::shared_ptr<tap::Capture> openCapture() {
    const std::wstring path = environment(L"SONVIA_TAP");
    if (path.empty()) {
        return nullptr;
    }
    const std::wstring limit = environment(L"SONVIA_TAP_LIMIT");
    return std::make_shared<tap::Capture>(
        path, limit.empty() ? tap::Capture::kDefaultLimit : std::wcstoull(limit.c_str(), nullptr, 10),
        [](const std::string& what) {
            writeLog(kLogWarning, kLogTagDefault, "[%s:%d]the capture %s", "tap", __LINE__, what.c_str());
        });
}

/// Of a stream that is not read, an empty one.
Tapped tapped(const void* stream) {
    const std::lock_guard guard(streams().mutex);
    const auto place = streams().all.find(stream);
    return place == streams().all.end() ? Tapped{} : place->second;
}

/// What the tap itself cannot do, for want of memory, is missing in the capture and nowhere else.
template <typename Work>
void quietly(Work work) noexcept {
    try {
        work();
    } catch (...) {
        static_cast<void>(0);
    }
}

void onRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
    const Tapped tap = tapped(stream);
    quietly([&] {
        if (count > 0) {
            const auto* begin = reinterpret_cast<const std::uint8_t*>(buffer->base);
            tap.capture->carried(standin::From::Service, {begin, begin + count});
        } else if (count < 0) {
            tap.capture->disconnected(static_cast<int>(count));
        }
    });
    tap.read(stream, count, buffer);
}

} // namespace

int __wrap_uv_read_start(uv_stream_t* stream, uv_alloc_cb alloc, uv_read_cb read) {
    quietly([&] {
        if (tapped(stream).read == nullptr) {
            Tapped fresh{read, openCapture()};
            const std::lock_guard guard(streams().mutex);
            streams().all[stream] = std::move(fresh);
        }
    });
    return __real_uv_read_start(stream, alloc, tapped(stream).capture != nullptr ? onRead : read);
}

int __wrap_uv_write(uv_write_t* request, uv_stream_t* stream, const uv_buf_t* buffers, unsigned count,
                    uv_write_cb done) {
    const Tapped tap = tapped(stream);
    if (tap.capture == nullptr) {
        return __real_uv_write(request, stream, buffers, count, done);
    }
    // First: the answer may be read before libuv returns.
    quietly([&] {
        oracle::Bytes bytes;
        for (unsigned index = 0; index < count; ++index) {
            const auto* begin = reinterpret_cast<const std::uint8_t*>(buffers[index].base);
            bytes.insert(bytes.end(), begin, begin + buffers[index].len);
        }
        tap.capture->carried(standin::From::Host, bytes);
    });
    const int result = __real_uv_write(request, stream, buffers, count, done);
    if (result != 0) {
        quietly([&] { tap.capture->refused(result); });
    }
    return result;
}

void __wrap_uv_close(uv_handle_t* handle, uv_close_cb closed) {
    const Tapped tap = tapped(handle);
    if (tap.capture != nullptr) {
        quietly([&] { tap.capture->disconnected(0); });
    }
    {
        const std::lock_guard guard(streams().mutex);
        streams().all.erase(handle);
    }
    __real_uv_close(handle, closed);
}
