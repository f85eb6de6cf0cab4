#include "api/audio_service_handle.h"
#include "api/life_cycle.h"
#include "log/init_log.h"
#include "log/write_log.h"

#include <exception>
#include <mutex>

namespace {

constexpr const char* kDefaultSourceName = "phone";

/// Runs the body of an exported function; nothing that it throws (the system being out of memory or threads)
/// reaches the host, who may not be C++ at all.
template <typename Result, typename Body>
Result guarded(const char* name, Result onException, Body body) {
    try {
        return body();
    } catch (const std::exception& error) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]%s", name, __LINE__, error.what());
        return onException;
    }
}

bool isNull(const AudioServiceHandle* handle, const char* name) {
    if (handle == nullptr) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]handle is NULL", name, __LINE__);
    }
    return handle == nullptr;
}

/// False, and the host is told through the callback of its last record, when the handle has no session.
bool hasSession(AudioServiceHandle& handle, const char* name, int logLevel, const char* logText) {
    if (handle.session != nullptr) {
        return true;
    }
    writeLog(logLevel, kLogTagDll, "[%s:%d]%s", name, __LINE__, logText);
    void (*onError)(int, int) = nullptr;
    {
        const std::lock_guard guard(handle.paramsMutex);
        onError = handle.params.onError;
    }
    if (onError != nullptr) {
        onError(SONVIA_ERROR_CONNECTION, 0);
    }
    return false;
}

} // namespace

AudioServiceHandle* initSonviaAudioService(const char* logDir, int logLevel) {
    return guarded<AudioServiceHandle*>(__func__, nullptr, [logDir, logLevel] {
        // One start-up at a time: each one begins with ending the service that another has just started.
        static OMutex& startUpMutex = *new OMutex;
        const std::lock_guard guard(startUpMutex);
        return startUp(logDir != nullptr ? logDir : "", logLevel).release();
    });
}

bool uninitSonviaAudioService(AudioServiceHandle* handle) {
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]uninitSonviaAudioService", __func__, __LINE__);
    if (handle == nullptr) {
        writeLog(kLogWarning, kLogTagDll, "[%s:%d]handle is NULL", __func__, __LINE__);
        return true;
    }
    const bool result = guarded(__func__, true, [handle] {
        const std::unique_ptr<AudioServiceHandle> owned(handle);
        shutDown(*owned);
        return true;
    });
    orvel::FLUSHLOG(); // the host may end the process right after this call
    return result;
}

bool exitAudioProjection(AudioServiceHandle* handle) {
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]exitAudioProjection", __func__, __LINE__);
    if (isNull(handle, __func__) || !hasSession(*handle, __func__, kLogWarning, "gQuPCAudio is NULL")) {
        return false;
    }
    return guarded(__func__, false, [handle] {
        handle->session->endProjection(handle->sequence);
        return true;
    });
}

uint32_t getState(AudioServiceHandle* handle) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]getState!", __func__, __LINE__);
    if (isNull(handle, __func__) || !hasSession(*handle, __func__, kLogWarning, "quPCAudio is NULL")) {
        return SONVIA_STATE_UNKNOWN;
    }
    return handle->session->getPlayerState();
}

const char* getSourceName(AudioServiceHandle* handle) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]getSourceName!", __func__, __LINE__);
    if (isNull(handle, __func__) || !hasSession(*handle, __func__, kLogWarning, "quPCAudio is NULL!")) {
        return kDefaultSourceName;
    }
    return guarded(__func__, kDefaultSourceName, [handle] {
        const char* name = handle->session->lendPhoneName();
        return name != nullptr ? name : kDefaultSourceName;
    });
}

bool setParam(AudioServiceHandle* handle, const AudioServiceParam* param) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]koru setParam!", __func__, __LINE__);
    if (isNull(handle, __func__)) {
        return false;
    }
    if (param == nullptr) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]param is NULL", __func__, __LINE__);
        return false;
    }
    // Read once and outside of every lock: a host may survive the fault of a record that cannot be read.
    const AudioServiceParam record = *param;
    {
        const std::lock_guard guard(handle->paramsMutex);
        handle->params = record;
    }
    if (!hasSession(*handle, __func__, kLogError, "gQuPCAudio is NULL")) {
        return false;
    }
    return guarded(__func__, false, [handle, &record] {
        if (!handle->session->init(record)) {
            writeLog(kLogError, kLogTagDll, "[%s:%d]setParam failed!", "setParam", __LINE__);
            return false;
        }
        return startLoopThread(*handle);
    });
}

bool setAccountID(AudioServiceHandle* handle, const char* accountID) {
    writeLog(kLogDebug, kLogTagDll, "[%s:%d]koru setAccountID!", __func__, __LINE__);
    // The words are setParam's; whoever searches logs for them knows both functions by them.
    if (isNull(handle, __func__) || !hasSession(*handle, __func__, kLogError, "setParam failed!")) {
        return false;
    }
    return guarded(__func__, false, [handle, accountID] { return handle->session->setAccountID(accountID); });
}

// Hosts exist that take the result for a pointer; all of the register is 0.
int getVersion(void) {
    return 0;
}
