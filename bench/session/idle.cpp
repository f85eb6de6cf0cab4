// A host that does nothing, with a live connection: bench/run counts from outside how often its threads wake up. Says
// "idle" on its standard output, then "done" after so many seconds; `--libuv` has libuv alone in the library's place.

#include "connection.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

namespace {

void stay(const char* seconds) {
    // What start-up leaves to be done, the log's flush among it, is done.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    std::puts("idle");
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::seconds(std::atoi(seconds)));
    std::puts("done");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::puts("usage: bench_idle <seconds> [--libuv]");
        return 1;
    }
    const auto noBytes = [](const char*, std::size_t) {};
    if (argc > 2 && std::strcmp(argv[2], "--libuv") == 0) {
        const std::string name = servicePipe(freshPipePrefix());
        PipeEnd service(PipeEnd::Role::Service, name, noBytes);
        PipeEnd client(PipeEnd::Role::Client, name, noBytes);
        stay(argv[1]);
    } else {
        LibraryConnection connection([](int, int) {}, noBytes);
        stay(argv[1]);
    }
    return 0;
}
