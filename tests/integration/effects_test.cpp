// What the library does to the process of its host: the rows of docs/effects.md that no other test covers.
#include <algorithm>
#include <string>
#include <vector>

#include "support/service_fixture.h"
#include "support/thread_names.h"

namespace {

class Effects : public support::ServiceTest {
protected:
    static std::ptrdiff_t threadsNamed(const std::string& name) {
        const std::vector<std::string> names = support::threadNames();
        return std::count(names.begin(), names.end(), name);
    }
};

TEST_F(Effects, BothThreadsOfTheLibraryCarryTheirNames) {
    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    EXPECT_EQ(threadsNamed("Sonvia loop"), 1);
    EXPECT_EQ(threadsNamed("Sonvia log"), 1);
    stop();
    EXPECT_EQ(threadsNamed("Sonvia loop"), 0);
    EXPECT_EQ(threadsNamed("Sonvia log"), 1);
}

} // namespace
