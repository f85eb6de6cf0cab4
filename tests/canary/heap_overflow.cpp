#include <cstddef>
#include <cstdlib>

int main() {
    // Out of the compiler's sight: an overflow that it can see is reported by another check than the one meant.
    volatile std::size_t size = 8;
    volatile char* bytes = static_cast<char*>(std::calloc(size, 1));
    if (bytes == nullptr) {
        return 0;
    }
    bytes[size] = 1;
    return bytes[0];
}
