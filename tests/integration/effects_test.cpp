// What the library does to the process of its host: the rows of docs/effects.md that no other test covers.
#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/thread_names.h"

namespace {

namespace fs = std::filesystem;

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

std::set<std::string> filesBelow(const fs::path& folder) {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        files.insert(entry.path().generic_string());
    }
    return files;
}

TEST_F(Effects, FilesAppearBelowTheLogFolderAlone) {
    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    const std::set<std::string> before = filesBelow(fs::current_path());
    const std::set<std::string> programs = filesBelow(support::programFolder());
    stop();
    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    stop();
    EXPECT_EQ(filesBelow(support::programFolder()), programs);
    for (const std::string& file : filesBelow(fs::current_path())) {
        const bool own = file.find("/PCAudiodll") != std::string::npos;
        const bool isTheServices = fs::path(file).filename().string().starts_with("record");
        EXPECT_TRUE(own || isTheServices || before.count(file) != 0) << file;
    }
}

// Of a host that logs everything.
TEST_F(Effects, LogHoldsNoneOfTheTextsThatTheHostHandedOver) {
    standin.play("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_EQ(
        support::runProgram(support::programFolder() / support::programFile("host_child"), {"whole-life"}),
        0);
    const std::string log = support::logText((fs::current_path() / "logs" / "host").string());
    ASSERT_NE(log.find("send notify accountid."), std::string::npos);
    const AudioServiceParam texts = support::completeParam();
    for (const char* text : {texts.accountID, texts.deviceID, texts.sn, texts.model, texts.bluetoothMac,
                             texts.pcName, "account-2"}) {
        EXPECT_EQ(log.find(text), std::string::npos) << text;
    }
}

} // namespace
