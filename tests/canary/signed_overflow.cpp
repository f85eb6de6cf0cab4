#include <limits>

int main(int argc, char** /*argv*/) {
    volatile int sum = std::numeric_limits<int>::max();
    sum = sum + argc;
    return sum == 0 ? 1 : 0;
}
