#include <cstdlib>

int main(int argc, char** /*argv*/) {
    volatile char* bytes = static_cast<char*>(std::malloc(8));
    if (bytes == nullptr) {
        return 0;
    }
    bytes[7 + argc] = 1;
    return bytes[0];
}
