#include "platform/thread_name.h"

#include <sys/prctl.h>

namespace platform {

void nameThisThread(const char* name) {
    ::prctl(PR_SET_NAME, name); // cuts a longer one
}

} // namespace platform
