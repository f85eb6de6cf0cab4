#include "api/life_cycle.h"

#include "api/service_process.h"
#include "log/init_log.h"
#include "log/write_log.h"
#include "platform/module.h"
#include "platform/thread_name.h"
#include "transport/loop_log.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr auto kPipeOpenTime = 200ms;
constexpr auto kServiceStopTime = 1000ms;
constexpr auto kForcedEndTime = 500ms; // the system's time to end a terminated process
constexpr auto kLoopStopTime = 200ms;
constexpr const char* kLogFolder = "\\PCAudiodll";

void killExe() {
    api::endEveryService();
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]kill QuPCAudio process", "killExe", __LINE__);
}

/// Ends the handle's service with its child processes; without taskkill at least the service itself.
void endByForce(platform::Process& process) {
    killExe();
    if (!process.waitForEnd(kForcedEndTime)) {
        process.endByForce();
        process.waitForEnd(kForcedEndTime);
    }
}

// Level 2 is left out on purpose: the log has no such level.
void forwardLoopLine(int level, const char* tag, const char* text) {
    if (level == kLogDebug || level == kLogInfo || level == kLogWarning || level == kLogError) {
        writeLog(level, tag, "%s", text);
    }
}

void stopService(AudioServiceHandle& handle) {
    constexpr const char* kName = "uninitSonviaAudioService";
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]send StopSonviaAudioService notify!", kName, __LINE__);
    try {
        handle.session->stopService(handle.sequence);
    } catch (const std::exception& error) { // the service is ended by force then
        writeLog(kLogError, kLogTagDll, "[%s:%d]%s", kName, __LINE__, error.what());
    }
    if (handle.process == nullptr) {
        return;
    }
    if (!handle.process->waitForEnd(kServiceStopTime)) {
        writeLog(kLogInfo, kLogTagDll, "[%s:%d]QuPCAudio exit timeout", kName, __LINE__);
        endByForce(*handle.process);
    }
    handle.session->serviceHasEnded();
}

void stopLoop(AudioServiceHandle& handle) {
    constexpr const char* kName = "uninitSonviaAudioService";
    if (handle.loop != nullptr) {
        handle.loop->stop();
        writeLog(kLogInfo, kLogTagDll, "[%s:%d]stop loop!", kName, __LINE__);
    }
    if (handle.loopThread != nullptr) {
        if (handle.loop->onLoopThread()) {
            // GCOVR_EXCL_START Ends the process, and the counting with it; host_process_test.cpp shows it.
            writeLog(kLogError, kLogTagDll, "[%s:%d]called inside a callback", kName, __LINE__);
            orvel::FLUSHLOG();
            std::abort(); // the thread cannot wait for itself, and the handle cannot be freed under it
            // GCOVR_EXCL_STOP
        }
        // A peer that sends part of a frame keeps libuv waiting for the rest.
        while (!handle.loop->waitForStop(kLoopStopTime) && !handle.loopThread->hasEnded()) {
            handle.session->interruptReading();
        }
        handle.loopThread->join();
        handle.loopThread = nullptr;
        writeLog(kLogInfo, kLogTagDll, "[%s:%d]exit thread!", kName, __LINE__);
    } else if (handle.loop != nullptr && handle.session->handle() != nullptr) {
        // A connect was begun but no thread could be started for the loop. libuv holds the pipe until its
        // loop has run.
        handle.loop->run([&handle] { handle.loop->stop(); });
    }
}

/// The loop thread's share of the loop.
using LoopShare = std::shared_ptr<OUVLoop>;

void runLoop(void* share) {
    const std::unique_ptr<LoopShare> own(static_cast<LoopShare*>(share));
    ThreadFun(*own);
}

} // namespace

std::unique_ptr<AudioServiceHandle> startUp(const char* logDir, int logLevel) {
    constexpr const char* kName = "initSonviaAudioService";
    platform::keepModuleLoaded();
    killExe();
    setLoopLogSink(forwardLoopLine);
    orvel::INITLOG((std::string(logDir) + kLogFolder).c_str(), logLevel);
    writeLog(kLogInfo, kLogTagDll, "[%s:%d]initSonviaAudioService", kName, __LINE__);
    auto handle = std::make_unique<AudioServiceHandle>();
    int systemError = 0;
    handle->process = api::startService(logDir, logLevel, systemError);
    if (handle->process == nullptr) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]QuPCAudio.exe start failed!!!!", kName, __LINE__);
        writeLog(kLogError, kLogTagDll, "[%s:%d]the system's error is %d", kName, __LINE__, systemError);
        orvel::FLUSHLOG(); // a host often ends right after this
        return nullptr;
    }
    try {
        handle->loop = std::make_shared<OUVLoop>();
        writeLog(kLogDebug, kLogTagDll, "[%s:%d]OUVLoop New", kName, __LINE__);
        handle->session = std::make_unique<QuPCAudioMessage>(handle->loop);
    } catch (...) {
        endByForce(*handle->process); // without a handle the host could not stop the service
        throw;
    }
    std::this_thread::sleep_for(kPipeOpenTime);
    return handle;
}

bool startLoopThread(AudioServiceHandle& handle) {
    const std::lock_guard guard(handle.startMutex);
    if (handle.loopThread != nullptr) {
        return true;
    }
    auto thread = std::make_unique<platform::Thread>();
    auto share = std::make_unique<LoopShare>(handle.loop);
    if (!thread->start(runLoop, share.get())) {
        writeLog(kLogError, kLogTagDll, "[%s:%d]thread start failed: the system gives none", "setParam",
                 __LINE__);
        return false;
    }
    static_cast<void>(share.release()); // the thread owns it
    handle.loopThread = std::move(thread);
    // The loop would refuse a stop before that, and the join would never end.
    handle.loop->waitForRun();
    return true;
}

void ThreadFun(const std::shared_ptr<OUVLoop>& loop) {
    constexpr const char* kName = "ThreadFun";
    platform::nameThisThread("Sonvia loop");
    if (loop == nullptr) {
        writeLog(kLogWarning, kLogTagDll, "[%s:%d]loop is NULL", kName, __LINE__);
        return;
    }
    const bool ran =
        loop->run([] { writeLog(kLogWarning, kLogTagDll, "[%s:%d]SonviaPCDll begin run", kName, __LINE__); });
    if (!ran) {
        writeLog(kLogWarning, kLogTagDll, "[%s:%d]SonviaPCDll is running", kName, __LINE__);
        return;
    }
    writeLog(kLogWarning, kLogTagDll, "[%s:%d]SonviaPCDll will out run", kName, __LINE__);
}

void shutDown(AudioServiceHandle& handle) {
    if (handle.session == nullptr) {
        writeLog(kLogInfo, kLogTagDll, "[%s:%d]QuPCAudio is null, try kill QuPCAudio.exe.",
                 "uninitSonviaAudioService", __LINE__);
        killExe();
        return;
    }
    stopService(handle);
    stopLoop(handle);
    handle.loop = nullptr;
    handle.session->close();
    handle.session = nullptr;
    handle.process = nullptr;
}
