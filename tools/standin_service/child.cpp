// A child process of the stand-in service: sleeps and takes no notice of anything, until it is killed or its
// own timeout ends it.
#include <chrono>
#include <thread>

int main() {
    std::this_thread::sleep_for(std::chrono::seconds(150));
    return 0;
}
