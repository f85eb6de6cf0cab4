#include "api/audio_service_handle.h"
#include "api/life_cycle.h"
#include "api/live_handles.h"
#include "log/init_log.h"
#include "log/write_log.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

namespace {

constexpr const char* kDefaultSourceName = "phone";

/// Runs the body of an exported function; nothing that it throws (the system being out of memory or threads)
/// reaches the host, who may not be C++ at all.
template <typename Result, typename Body>
Result guarded(const char* name, Result onException, Body body) {
    try {
        return body();
    } catch (const std::exception& error) { // GCOVR_EXCL_START the system is out of memory or of locks
        writeLog(kLogError, kLogTagDll, "[%s:%d]%s", name, __LINE__, error.what());
        return onException;
    } // GCOVR_EXCL_STOP
}

using IdText = std::array<char, SONVIA_TEXT_SIZE + 1>;

/// A text of the host's as far as an account id reaches: one that is too long stays too long.
IdText idTextOf(const char* text) {
    IdText copy = {};
    if (text != nullptr) {
        std::strncpy(copy.data(), text, copy.size() - 1);
    }
    return copy;
}

void logReleased(const char* name) {
    writeLog(kLogError, kLogTagDll, "[%s:%d]handle has been released", name, __LINE__);
}

/// The record behind a host's handle; empty, with a line in the log, when there is none.
HandleUse useOf(const AudioServiceHandle* handle, const char* name) {
    HandleUse use = liveHandles().use(handle);
    if (handle == nullptr) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]handle is NULL", name, __LINE__);
    } else if (!use) {
        logReleased(name);
    }
    return use;
}

/// Whether the handle has a session. If not, logs it, ends the use and calls onError: that callback may call any
/// function, so the handle must not be in use then.
bool hasSession(HandleUse& use, const char* name, int logLevel, const char* logText) {
    if (use->session != nullptr) {
        return true;
    }
    writeLog(logLevel, kLogTagDll, "[%s:%d]%s", name, __LINE__, logText);
    void (*onError)(int, int) = nullptr;
    {
        const std::lock_guard guard(use->paramsMutex);
        onError = use->params.onError;
    }
    { const HandleUse ended = std::move(use); }
    if (onError != nullptr) {
        onError(SONVIA_ERROR_CONNECTION, 0);
    }
    return false;
}

/// What getState gives when the table of live handles does not know. Apart from it, so that a host that polls does not pay
/// for the registers that are saved here.
[[gnu::noinline]] std::uint32_t askForState(const AudioServiceHandle* handle, const char* name) {
    HandleUse use = useOf(handle, name);
    if (!use || !hasSession(use, name, kLogWarning, "quPCAudio is NULL")) {
        return SONVIA_STATE_UNKNOWN;
    }
    return use->session->getPlayerState();
}

} // namespace

AudioServiceHandle* initSonviaAudioService(const char* logDir, int logLevel) {
    return guarded<AudioServiceHandle*>(__func__, nullptr, [logDir, logLevel] {
        // One start-up at a time: each one begins with ending the service that another has just started.
        static OMutex& startUpMutex = *new OMutex;
        const std::lock_guard guard(startUpMutex);
        LiveHandles& handles = liveHandles();
        auto one =
            std::make_unique<HandleEntry>(); // before the service is started: afterwards nothing may fail
        one->record = startUp(logDir != nullptr ? logDir : "", logLevel);
        return one->record != nullptr ? handles.add(std::move(one)) : nullptr;
    });
}

bool uninitSonviaAudioService(AudioServiceHandle* handle) {
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]uninitSonviaAudioService", __func__, __LINE__);
    if (handle == nullptr) {
        writeLog(kLogWarning, kLogTagDll, "[%s:%d]handle is NULL", __func__, __LINE__);
        return true;
    }
    const bool isReleased = guarded(__func__, true, [handle] {
        const HandleRelease release(liveHandles(), handle);
        if (!release) {
            logReleased("uninitSonviaAudioService");
            return false;
        }
        shutDown(*release);
        return true;
    });
    if (isReleased) {
        orvel::FLUSHLOG(); // the host may end the process right after this call
    }
    return true;
}

bool exitAudioProjection(AudioServiceHandle* handle) {
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]exitAudioProjection", __func__, __LINE__);
    HandleUse use = useOf(handle, __func__);
    if (!use || !hasSession(use, __func__, kLogWarning, "gQuPCAudio is NULL")) {
        return false;
    }
    return guarded(__func__, false, [&use] {
        use->session->endProjection(use->sequence);
        return true;
    });
}

uint32_t getState(AudioServiceHandle* handle) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]getState!", __func__, __LINE__);
    const std::uint32_t state = liveHandles().playerState(handle);
    return state != HandleEntry::kAskSession ? state : askForState(handle, __func__);
}

const char* getSourceName(AudioServiceHandle* handle) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]getSourceName!", __func__, __LINE__);
    HandleUse use = useOf(handle, __func__);
    if (!use || !hasSession(use, __func__, kLogWarning, "quPCAudio is NULL!")) {
        return kDefaultSourceName;
    }
    return guarded(__func__, kDefaultSourceName, [&use] {
        const char* name = use->session->getPhoneName();
        return name != nullptr ? name : kDefaultSourceName;
    });
}

bool setParam(AudioServiceHandle* handle, const AudioServiceParam* param) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]koru setParam!", __func__, __LINE__);
    if (!useOf(handle, __func__)) {
        return false;
    }
    if (param == nullptr) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]param is NULL", __func__, __LINE__);
        return false;
    }
    // Read once, and while the handle is not in use: a host may survive the fault of a record that cannot be read.
    const AudioServiceParam record = *param;
    HandleUse use = useOf(handle, __func__);
    if (!use) {
        return false;
    }
    {
        const std::lock_guard guard(use->paramsMutex);
        use->params = record;
    }
    if (!hasSession(use, __func__, kLogError, "gQuPCAudio is NULL")) {
        return false;
    }
    return guarded(__func__, false, [&use, &record] {
        if (!use->session->init(record)) {
            writeLog(kLogError, kLogTagDll, "[%s:%d]setParam failed!", "setParam", __LINE__);
            return false;
        }
        return startLoopThread(*use);
    });
}

bool setAccountID(AudioServiceHandle* handle, const char* accountID) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]koru setAccountID!", __func__, __LINE__);
    if (!useOf(handle, __func__)) {
        return false;
    }
    const IdText text = idTextOf(accountID); // as in setParam
    HandleUse use = useOf(handle, __func__);
    // Kept for compatibility: the message names setParam. A search for it finds the failures of both functions.
    if (!use || !hasSession(use, __func__, kLogError, "setParam failed!")) {
        return false;
    }
    return guarded(__func__, false, [&use, &text] { return use->session->setAccountID(text.data()); });
}

// Kept for compatibility: returns 0. Some hosts take the result for a pointer; the whole register is 0.
int getVersion(void) {
    return 0;
}
