#include "platform/auto_reset_event.h"

#include "platform/timeout.h"

#include <windows.h>

namespace platform {

namespace {

static_assert(kNoTimeout == INFINITE);

class SystemEvent final : public AutoResetEvent {
public:
    void signal() override {
        AcquireSRWLockExclusive(&mLock);
        mSignalled = true;
        ReleaseSRWLockExclusive(&mLock);
        WakeConditionVariable(&mChanged);
    }

    bool wait(unsigned milliseconds) override {
        const ULONGLONG end = GetTickCount64() + milliseconds;
        AcquireSRWLockExclusive(&mLock);
        while (!mSignalled) {
            DWORD left = INFINITE;
            if (milliseconds != kNoTimeout) {
                const ULONGLONG now = GetTickCount64();
                if (now >= end) {
                    break;
                }
                left = static_cast<DWORD>(end - now);
            }
            SleepConditionVariableSRW(&mChanged, &mLock, left, 0);
        }
        const bool taken = mSignalled;
        mSignalled = false;
        ReleaseSRWLockExclusive(&mLock);
        return taken;
    }

private:
    SRWLOCK mLock = SRWLOCK_INIT;
    CONDITION_VARIABLE mChanged = CONDITION_VARIABLE_INIT;
    bool mSignalled = false;
};

} // namespace

std::unique_ptr<AutoResetEvent> makeAutoResetEvent() {
    return std::make_unique<SystemEvent>();
}

} // namespace platform
