#pragma once

#include "SonviaPCAudioDll.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "session/qu_pc_audio_message.h"
#include "transport/loop.h"
#include "transport/mutex.h"

#include <atomic>
#include <cstdint>
#include <memory>

/// One running service: what the host's opaque pointer points at.
struct AudioServiceHandle {
    std::shared_ptr<OUVLoop> loop;
    std::unique_ptr<QuPCAudioMessage> session;
    std::unique_ptr<platform::Thread> loopThread; ///< null until the first successful setParam
    std::unique_ptr<platform::Process> process;
    /// Of the notifications that the exported functions send themselves; the first one carries 1.
    std::atomic<std::uint16_t> sequence{0};
    AudioServiceParam params = {}; ///< the host's last record
    OMutex paramsMutex;            ///< guards params; not held across a host callback
    OMutex startMutex;             ///< lets one setParam start the loop thread
};
