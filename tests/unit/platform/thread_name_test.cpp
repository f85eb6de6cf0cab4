#include "platform/thread_name.h"

#include "support/thread_names.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

TEST(ThreadName, IsWhatADebuggerShows) {
    std::thread([] {
        platform::nameThisThread("Sonvia loop");
        EXPECT_EQ(support::threadName(), "Sonvia loop");
    }).join();
    EXPECT_NE(support::threadName(), "Sonvia loop") << "only the thread that asked is named";
}

TEST(ThreadName, MayBeLongerThanTheSystemKeeps) {
    std::thread([] {
        const std::string longName(300, 'n');
        platform::nameThisThread(longName.c_str());
        EXPECT_EQ(support::threadName().substr(0, 15), std::string(15, 'n'));
    }).join();
}

} // namespace
