#include "platform/semaphore.h"

#include "platform/timeout.h"

#include <windows.h>

namespace platform {

static_assert(kNoTimeout == INFINITE);

struct Semaphore::System {
    HANDLE handle;
};

Semaphore::Semaphore(int initialCount, int maximumCount)
    : mSystem(new System{CreateSemaphoreW(nullptr, initialCount, maximumCount, nullptr)}) {}

Semaphore::~Semaphore() {
    if (mSystem->handle != nullptr) {
        CloseHandle(mSystem->handle);
    }
}

bool Semaphore::post() {
    return ReleaseSemaphore(mSystem->handle, 1, nullptr) != FALSE;
}

bool Semaphore::wait(unsigned milliseconds) {
    return WaitForSingleObject(mSystem->handle, milliseconds) == WAIT_OBJECT_0;
}

} // namespace platform
