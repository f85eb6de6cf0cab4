#include "platform/thread_id.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace platform {

std::uint32_t currentThreadId() {
    // Cached, because every log line has it.
    static thread_local const auto kId = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    return kId;
}

} // namespace platform
