#include "platform/auto_reset_event.h"

#include "platform/semaphore.h"

namespace platform {

namespace {

/// The semaphore here is made of a mutex and a condition, and needs the kernel only for a sleeper.
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
