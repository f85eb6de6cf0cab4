#include "platform/wake_up.h"

#include <windows.h>

namespace platform {

struct WakeUp::System {
    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE changed = CONDITION_VARIABLE_INIT;
    bool signalled = false;
};

WakeUp::WakeUp() : mSystem(new System) {}

WakeUp::~WakeUp() = default;

void WakeUp::signal() {
    AcquireSRWLockExclusive(&mSystem->lock);
    mSystem->signalled = true;
    ReleaseSRWLockExclusive(&mSystem->lock);
    WakeConditionVariable(&mSystem->changed);
}

bool WakeUp::wait(unsigned milliseconds) {
    const ULONGLONG end = GetTickCount64() + milliseconds;
    AcquireSRWLockExclusive(&mSystem->lock);
    for (ULONGLONG now = GetTickCount64(); !mSystem->signalled && now < end; now = GetTickCount64()) {
        SleepConditionVariableSRW(&mSystem->changed, &mSystem->lock, static_cast<DWORD>(end - now), 0);
    }
    const bool taken = mSystem->signalled;
    mSystem->signalled = false;
    ReleaseSRWLockExclusive(&mSystem->lock);
    return taken;
}

} // namespace platform
