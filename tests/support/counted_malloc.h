#pragma once

namespace support {

/// Counts what one block of test code takes from the C allocator and from operator new, and can let one request
/// fail, whichever thread it comes from. Test programs that use it are linked with --wrap=malloc, --wrap=calloc and --wrap=realloc. One at a time.
class CountedMalloc {
public:
    /// Counting starts; request number `failing` (from 1 on) gets null, 0 fails none.
    explicit CountedMalloc(int failing = 0);
    ~CountedMalloc();
    CountedMalloc(const CountedMalloc&) = delete;
    CountedMalloc& operator=(const CountedMalloc&) = delete;

    /// Ends the counting.
    int stop();
};

} // namespace support
