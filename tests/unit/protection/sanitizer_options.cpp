// Tests ask for more memory than there is; the sanitizers' allocators would end the program instead of
// answering.
#if defined(__SANITIZE_ADDRESS__)
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
