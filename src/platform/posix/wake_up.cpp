#include "platform/wake_up.h"

#include "platform/semaphore.h"

namespace platform {

/// The semaphore here is made of a mutex and a condition, and needs the kernel only for a sleeper.
struct WakeUp::System {
    Semaphore semaphore{0, 1};
};

WakeUp::WakeUp() : mSystem(new System) {}

WakeUp::~WakeUp() = default;

void WakeUp::signal() {
    mSystem->semaphore.post();
}

bool WakeUp::wait(unsigned milliseconds) {
    return mSystem->semaphore.wait(milliseconds);
}

} // namespace platform
