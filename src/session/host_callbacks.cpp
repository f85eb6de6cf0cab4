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

/// An exception of the host's has nowhere to go: its callback is called from the loop. It ends the process, as one that
/// leaves a thread does, and the log says what it was.
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
