// A system that cannot create a thread. The test program's pthread_create overrides the C library's.
#pragma once

namespace support {

/// While it lives, no thread can be started. One at a time, on one thread.
class RefusingThreads {
public:
    RefusingThreads();
    ~RefusingThreads();
    RefusingThreads(const RefusingThreads&) = delete;
    RefusingThreads& operator=(const RefusingThreads&) = delete;
};

} // namespace support
