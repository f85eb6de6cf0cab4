#include "platform/thread.h"

#include <windows.h>

#include <process.h>

#include <cstdint>

namespace platform {

struct Thread::System {
    HANDLE handle = nullptr;
    void (*entry)(void*) = nullptr;
    void* argument = nullptr;

    static unsigned __stdcall run(void* self) {
        const auto* system = static_cast<System*>(self);
        system->entry(system->argument);
        return 0;
    }
};

Thread::Thread() : mSystem(new System) {}

Thread::~Thread() {
    if (mSystem->handle != nullptr) {
        CloseHandle(mSystem->handle);
    }
}

bool Thread::start(void (*entry)(void*), void* argument) {
    join();
    mSystem->entry = entry;
    mSystem->argument = argument;
    // Not CreateThread: the thread uses the C runtime's per-thread data.
    const std::uintptr_t number = _beginthreadex(nullptr, 0, System::run, mSystem.get(), 0, nullptr);
    mSystem->handle = reinterpret_cast<HANDLE>(number); // NOLINT(performance-no-int-to-ptr)
    return mSystem->handle != nullptr;
}

bool Thread::hasEnded() const {
    return mSystem->handle == nullptr || WaitForSingleObject(mSystem->handle, 0) == WAIT_OBJECT_0;
}

void Thread::join() {
    if (mSystem->handle != nullptr) {
        WaitForSingleObject(mSystem->handle, INFINITE);
        CloseHandle(mSystem->handle);
        mSystem->handle = nullptr;
    }
}

} // namespace platform
