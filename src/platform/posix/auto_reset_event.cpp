#include "platform/auto_reset_event.h"

#include "platform/semaphore.h"

namespace platform {

namespace {

/// The semaphore here is a mutex and a condition variable, which enter the kernel only for a sleeping thread.
class SystemEvent final : public AutoResetEvent {
public:
    void signal() override { mSemaphore.post(); }

    bool wait(unsigned milliseconds) override { return mSemaphore.wait(milliseconds); }

private:
    Semaphore mSemaphore{0, 1};
};

} // namespace

std::unique_ptr<AutoResetEvent> makeAutoResetEvent() {
    return std::make_unique<SystemEvent>();
}

} // namespace platform
