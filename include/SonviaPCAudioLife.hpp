/**
 * Part of SonviaPCAudio.hpp: what a host hands to a session and gets from it, and the bookkeeping of one session from open
 * to close. Include SonviaPCAudio.hpp.
 */
#ifndef SONVIA_PC_AUDIO_LIFE_HPP
#define SONVIA_PC_AUDIO_LIFE_HPP

#include "SonviaPCAudioDll.h"
#include "SonviaPCAudioLibrary.hpp"
#include "SonviaPCAudioNames.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace sonvia {

struct Event {
    EventKind kind;
    int value; ///< the new mode for ModeChanged, otherwise 0
};

struct Error {
    ErrorKind kind;
    int value; ///< a libuv error code; 0 if no connection was made

    /// No connection could be made within Options::connectTime; connect may be called again.
    bool neverConnected() const { return kind == ErrorKind::Connection && value == 0; }
};

/// Called on the library's thread; any of them may be empty. They must return soon, and must not wait for a thread
/// that is inside Session::close.
struct Handlers {
    std::function<void(const Event&)> onEvent;
    std::function<void(const Error&)> onError;
    /// Gets what a handler has thrown. What this one throws is dropped: no exception reaches the library.
    std::function<void(const std::exception_ptr&)> onException;
};

struct Options {
    /// UTF-8. Created if it is missing. The service takes only ASCII without spaces, so another path is replaced by
    /// its short name. The first session of a process decides where the library's own log is.
    std::string logFolder;
    LogLevel level = LogLevel::Info;
    /// A service that starts slowly is asked again for so long; then onError reports it.
    std::chrono::milliseconds connectTime{5000};
};

namespace detail {

inline constexpr std::chrono::milliseconds kPauseBetweenConnects{100};

// The text with its NUL; the rest of the field is cleared.
inline std::error_code put(std::string_view text, char (&field)[SONVIA_TEXT_SIZE]) {
    if (const std::error_code bad = judgeText(text)) {
        return bad;
    }
    if (text.size() >= sizeof field) {
        return Failure::TextTooLong;
    }
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy(text.begin(), text.end(), field);
    return {};
}

inline std::error_code putAll(const Identity& from, AudioServiceParam& to) {
    std::error_code failed;
    forEachText(from, to, [&](const std::string& text, char(&field)[SONVIA_TEXT_SIZE]) {
        failed = failed ? failed : put(text, field);
    });
    return failed;
}

inline bool& insideHandler() {
    thread_local bool inside = false;
    return inside;
}

// One session from open to close. Callbacks may still hold it when the Session is gone.
struct Life {
    Library library;
    Handlers handlers;
    AudioServiceHandle* handle = nullptr;
    std::chrono::milliseconds connectTime{0};

    std::mutex mutex;
    std::condition_variable changed;
    AudioServiceParam param = {};
    std::chrono::steady_clock::time_point retriesEnd; // of connecting
    int calls = 0;                                    // that run now
    bool closing = false;
    bool closed = false;

    // A call that may not overlap the release: false once that has begun.
    bool enter() {
        const std::lock_guard<std::mutex> lock(mutex);
        calls += closing ? 0 : 1;
        return !closing;
    }

    void leave() {
        const std::lock_guard<std::mutex> lock(mutex);
        --calls;
        changed.notify_all();
    }

    template <typename Function>
    std::error_code call(Function function) {
        if (!enter()) {
            return Failure::NotOpen;
        }
        const bool taken = function();
        leave();
        return taken ? std::error_code() : Failure::Refused;
    }

    std::error_code sendParam() {
        return call([this] {
            std::unique_lock<std::mutex> lock(mutex);
            const AudioServiceParam copy = param;
            lock.unlock();
            return library.setParam(handle, &copy);
        });
    }

    // Inside onError, on the library's thread: nothing else arrives there while there is no connection, so the pause
    // delays no event. Returns false when the host has to hear of the error.
    bool connectAgain() {
        {
            std::unique_lock<std::mutex> lock(mutex);
            if (!closing && std::chrono::steady_clock::now() >= retriesEnd) {
                return false;
            }
            changed.wait_for(lock, kPauseBetweenConnects, [this] { return closing; });
            if (closing) {
                return true;
            }
        }
        const std::error_code failed = sendParam();
        return !failed || failed == Failure::NotOpen;
    }

    void report(const std::exception_ptr& thrown) noexcept {
        try {
            if (handlers.onException) {
                handlers.onException(thrown);
            }
        } catch (...) { // there is nobody left to report it to
        }
    }

    void release();
};

// The session whose handlers the library's callbacks are for. Never destroyed: the library's thread may call back while
// the host's static objects are destroyed.
struct Current {
    std::mutex mutex;
    std::shared_ptr<Life> life;

    static Current& instance() {
        static Current& current = *new Current;
        return current;
    }

    std::shared_ptr<Life> get() {
        const std::lock_guard<std::mutex> lock(mutex);
        return life;
    }

    bool take(const std::shared_ptr<Life>& next) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (life != nullptr) {
            return false;
        }
        life = next;
        return true;
    }

    void clear() {
        std::shared_ptr<Life> last; // destroyed without the lock: with it go the host's handlers
        const std::lock_guard<std::mutex> lock(mutex);
        last.swap(life);
    }
};

template <typename Function>
void deliver(Function function) noexcept {
    const std::shared_ptr<Life> life = Current::instance().get();
    if (life == nullptr) {
        return;
    }
    insideHandler() = true;
    try {
        function(*life);
    } catch (...) {
        life->report(std::current_exception());
    }
    insideHandler() = false;
}

inline void onEvent(int event, int value) {
    deliver([=](Life& life) {
        if (life.handlers.onEvent) {
            life.handlers.onEvent(Event{static_cast<EventKind>(event), value});
        }
    });
}

inline void onError(int code, int value) {
    deliver([=](Life& life) {
        const Error error{static_cast<ErrorKind>(code), value};
        const bool noError = error.kind == ErrorKind::Stream && value == 0; // a frame came in several pieces
        if (noError || (error.neverConnected() && life.connectAgain())) {
            return;
        }
        if (life.handlers.onError) {
            life.handlers.onError(error);
        }
    });
}

// Waits for the calls that run, then stops the service. A second caller waits until the first is done.
inline void Life::release() {
    std::unique_lock<std::mutex> lock(mutex);
    if (closing) {
        changed.wait(lock, [this] { return closed; });
        return;
    }
    closing = true;
    changed.notify_all();
    changed.wait(lock, [this] { return calls == 0; });
    lock.unlock();
    library.uninit(handle);
    handlers = {}; // what they hold goes now, and not with the Session
    Current::instance().clear();
    lock.lock();
    closed = true;
    changed.notify_all();
}

} // namespace detail

} // namespace sonvia

#endif // SONVIA_PC_AUDIO_LIFE_HPP
