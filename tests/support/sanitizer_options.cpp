// Tests ask for more memory than there is; the sanitizers' allocators would end the program instead of
// answering.
#include "support/sanitizers.h"

#ifdef SONVIA_ADDRESS_SANITIZER
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
#ifdef SONVIA_THREAD_SANITIZER
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
