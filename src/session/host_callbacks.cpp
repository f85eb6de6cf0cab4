// How a session calls its host.

#include "log/init_log.h"
#include "log/write_log.h"
#include "session/qu_pc_audio_message.h"

#include <exception>

namespace {

void logThrowingCallback(const char* what) {
    writeLog(kLogError, kLogTagSession, "[%s:%d]the host's callback threw: %s", "QuPCAudioMessage::callHost",
             __LINE__, what);
    orvel::FLUSHLOG();
}

/// The loop calls the callback, so nobody can catch the host's exception. It ends the process, as one that leaves a thread
/// does; the log has its text.
void callOrEnd(void (*callback)(int, int), int first, int second) noexcept {
    try {
        callback(first, second);
    } catch (const std::exception& error) {
        logThrowingCallback(error.what());
        std::terminate();
    } catch (...) {
        logThrowingCallback("no std::exception");
        std::terminate();
    }
}

} // namespace

void QuPCAudioMessage::callHost(HostCallback callback, int first, int second) {
    if (callback != nullptr) {
        mLoop->runOutside([=]() noexcept { callOrEnd(callback, first, second); });
    }
}
