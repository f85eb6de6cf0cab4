#include "platform/module.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(Module, MayBeKeptLoadedAgainAndFromEveryThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            platform::keepModuleLoaded();
            platform::keepModuleLoaded();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
