/**
 * SonviaPCAudioDll for C++17 and later, header-only: one class for the session, std::function for events and errors,
 * UTF-8 everywhere, std::error_code for results.
 *
 *     sonvia::Library library;
 *     sonvia::Session session;
 *     std::error_code failed = library.load();                  // from the folder of the host's executable
 *     if (!failed) failed = session.open(library, {"C:\\ProgramData\\App\\logs"}, {onEvent, onError});
 *     if (!failed) failed = session.connect(identity);
 *     ...                                                       // events arrive on the library's thread
 *     session.close();
 *
 * One session at a time in a process: the library's callbacks carry no pointer of the host's, so the handlers of the
 * open session are found through a static variable of the module that includes this header.
 *
 * Threads. The handlers run on the library's thread, one at a time. Any thread may call any function of an open
 * session, also inside a handler, with two exceptions: open and close fail there with Failure::InsideCallback. close may
 * be called while other calls run: it waits for them, and later ones fail with Failure::NotOpen. Opening, moving and
 * destroying a Session need the usual care: no other thread may use the object meanwhile.
 */
#ifndef SONVIA_PC_AUDIO_HPP
#define SONVIA_PC_AUDIO_HPP

#include "SonviaPCAudioDll.h"
#include "SonviaPCAudioLibrary.hpp"
#include "SonviaPCAudioNames.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
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

/// One session with the service; move-only. The destructor closes it; inside a handler, where that is impossible, it
/// leaves that to a thread of its own.
class Session {
public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    Session(Session&& other) noexcept = default;

    Session& operator=(Session&& other) noexcept {
        if (this != &other) {
            letGo();
            mLife = std::move(other.mLife);
        }
        return *this;
    }

    ~Session() { letGo(); }

    /// Starts the service. The handlers stay until close.
    /// Blocks: while running services are ended, plus 200 ms: not for a user-interface thread.
    /// Returns: SessionOpen, InsideCallback, ServiceNotStarted, LibraryNotLoaded, or what folderForService gives.
    std::error_code open(const Library& library, const Options& options, Handlers handlers);

    /// Connects and sends the identity; later calls send the new one. A service that is not ready yet is asked again
    /// until Options::connectTime has passed; Handlers::onError reports what then is still not connected.
    /// Returns: NotOpen, TextTooLong, TextNotUtf8, TextHoldsNul, or Refused (while a connection is being made: the
    ///          identity is sent once it is there).
    std::error_code connect(const Identity& identity);

    /// Changes the account; empty if nobody is signed in. Blocks: at most 50 ms.
    std::error_code setAccount(std::string_view accountID);

    /// Asks the service to end the projection. Dropped if it is not connected.
    std::error_code exitProjection();

    /// The player state as the service sent it; kStateUnknown before its first report and without an open session.
    std::uint32_t state() const;

    /// The phone's name in the service's encoding; "phone" while none is known, and without an open session.
    std::string phone() const;

    bool isOpen() const;

    /// Stops the service and releases the handle; does nothing if no session is open. No handler runs after it.
    /// Blocks: until the service has ended, which can take more than a second.
    /// Returns: InsideCallback, and then the session is still open.
    std::error_code close();

private:
    void letGo() noexcept;

    std::shared_ptr<detail::Life> mLife;
};

inline std::error_code Session::open(const Library& library, const Options& options, Handlers handlers) {
    if (detail::insideHandler()) {
        return Failure::InsideCallback;
    }
    if (!library) {
        return Failure::LibraryNotLoaded;
    }
    std::string folder;
    if (const std::error_code failed = folderForService(options.logFolder, folder)) {
        return failed;
    }
    const auto life = std::make_shared<detail::Life>();
    life->library = library;
    life->handlers = std::move(handlers);
    life->connectTime = options.connectTime;
    life->param.onEvent = detail::onEvent;
    life->param.onError = detail::onError;
    life->param.context = life.get();
    if (!detail::Current::instance().take(life)) {
        return Failure::SessionOpen;
    }
    life->handle = library.init(folder.c_str(), static_cast<int>(options.level));
    if (life->handle == nullptr) {
        detail::Current::instance().clear();
        return Failure::ServiceNotStarted;
    }
    mLife = life;
    return {};
}

inline std::error_code Session::connect(const Identity& identity) {
    if (mLife == nullptr) {
        return Failure::NotOpen;
    }
    {
        const std::lock_guard<std::mutex> lock(mLife->mutex);
        AudioServiceParam next = mLife->param;
        if (const std::error_code failed = detail::putAll(identity, next)) {
            return failed;
        }
        mLife->param = next;
        mLife->retriesEnd = std::chrono::steady_clock::now() + mLife->connectTime;
    }
    return mLife->sendParam();
}

inline std::error_code Session::setAccount(std::string_view accountID) {
    if (mLife == nullptr) {
        return Failure::NotOpen;
    }
    char field[SONVIA_TEXT_SIZE];
    if (const std::error_code failed = detail::put(accountID, field)) {
        return failed;
    }
    std::unique_lock<std::mutex> lock(mLife->mutex);
    const bool shorter = accountID.empty() || accountID.size() < std::strlen(mLife->param.accountID);
    std::copy(std::begin(field), std::end(field), mLife->param.accountID);
    lock.unlock();
    // The library's setAccountID keeps the tail of a longer id.
    return shorter ? mLife->sendParam()
                   : mLife->call([&] { return mLife->library.setAccountID(mLife->handle, field); });
}

inline std::error_code Session::exitProjection() {
    return mLife == nullptr ? make_error_code(Failure::NotOpen)
                            : mLife->call([this] { return mLife->library.exitProjection(mLife->handle); });
}

inline std::uint32_t Session::state() const {
    std::uint32_t state = kStateUnknown;
    if (mLife != nullptr) {
        mLife->call([&] {
            state = mLife->library.state(mLife->handle);
            return true;
        });
    }
    return state;
}

inline std::string Session::phone() const {
    std::string name = "phone";
    if (mLife != nullptr) {
        mLife->call([&] {
            name = mLife->library.sourceName(mLife->handle);
            return true;
        });
    }
    return name;
}

inline bool Session::isOpen() const {
    if (mLife == nullptr) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mLife->mutex);
    return !mLife->closing;
}

inline std::error_code Session::close() {
    if (mLife == nullptr) {
        return {};
    }
    if (detail::insideHandler()) {
        return Failure::InsideCallback;
    }
    mLife->release();
    return {};
}

inline void Session::letGo() noexcept {
    if (!isOpen()) {
        mLife.reset();
    } else if (detail::insideHandler()) {
        std::thread([life = std::move(mLife)] { life->release(); }).detach();
    } else {
        mLife->release();
        mLife.reset();
    }
}

} // namespace sonvia

#endif // SONVIA_PC_AUDIO_HPP
