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

#include "SonviaPCAudioLibrary.hpp"
#include "SonviaPCAudioLife.hpp"
#include "SonviaPCAudioNames.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace sonvia {

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
