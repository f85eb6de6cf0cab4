#include <thread>

namespace {

int counter = 0;

void count() {
    for (int i = 0; i < 10000; ++i) {
        counter = counter + 1;
    }
}

} // namespace

int main() {
    std::thread one(count);
    std::thread two(count);
    one.join();
    two.join();
    return 0;
}
