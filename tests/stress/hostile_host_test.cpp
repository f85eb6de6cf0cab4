// Hosts that end when it pleases them, come back hundreds of times, and live in folders of their own kind.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

constexpr int kExitCode = 61;
// From the host's last step to its end: nothing may wait there, a busy machine needs a moment.
constexpr std::chrono::seconds kEndGuard{10};
constexpr const char* kOneEvent = "wait packet key KORUInfo\nnotify int buffering-start 1\n";
constexpr const char* kWays[] = {"main", "exit", "_exit", "abort", "system", "free"};

fs::path program(const std::string& name) {
    return support::programFolder() / support::programFile(name);
}

struct State {
    const char* name;
    const char* scenario;

    friend void PrintTo(const State& state, std::ostream* out) { *out << state.name; }
};

class HostEnd : public testing::TestWithParam<State> {
protected:
    void SetUp() override { support::enterTestFolder(); }

    // Lets a host reach the state and end in that way. Returns its exit code.
    int end(const State& state, const std::string& way) {
        standin.play(state.scenario);
        fs::remove("ending");
        const int code =
            support::runProgram(program("host_ends"), {state.name, way, std::to_string(kExitCode)});
        const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::system_clock::now().time_since_epoch());
        long long begun = now.count();
        EXPECT_TRUE(std::ifstream("ending") >> begun) << "the host did not come to its end";
        const std::chrono::milliseconds lasted = now - std::chrono::milliseconds(begun);
        EXPECT_LT(lasted, kEndGuard) << state.name << " " << way;
        mLongest = std::max(mLongest, lasted);
        return code;
    }

    support::Standin standin;
    std::chrono::milliseconds mLongest{0};
};

TEST_P(HostEnd, ComesAtOnceWithTheHostsOwnExitCode) {
    const State& state = GetParam();
    const bool callbackEnds = std::string(state.name) == "in-callback";
    int ends = 0;
    for (int round = 0; round < support::processRounds(1, 2); ++round) {
        for (const std::string way : kWays) {
            if (callbackEnds && (way == "main" || way == "free")) {
                continue; // a callback cannot leave main
            }
            const int expected = way == "abort" ? end({"untouched", ""}, way) : kExitCode;
            EXPECT_EQ(end(state, way), expected) << way;
            ++ends;
        }
    }
    support::longest("end of a host", mLongest);
    support::tried("hostile host: ends, in any state and way", ends, "processes");
}

const State kStates[] = {
    {"loaded", ""},
    {"started", ""},
    {"configured", ""},
    {"connected", kOneEvent},
    {"flooded", "wait packet key KORUInfo\nrepeat forever\n notify int buffering-start 1\nend\n"},
    {"in-callback", kOneEvent},
    {"behind-callback", kOneEvent},
    {"never-connected", "no-pipe\n"},
    {"lost", "wait packet key KORUInfo\nnotify int buffering-start 1\nwait packet key "
             "exitAudioProjection\ncrash\n"},
    {"released", kOneEvent},
};

INSTANTIATE_TEST_SUITE_P(When, HostEnd, testing::ValuesIn(kStates), [](const auto& state) {
    std::string name;
    for (const char letter : std::string(state.param.name)) {
        if (letter != '-') {
            name += letter;
        }
    }
    return name;
});

class HostileHost : public testing::Test {
protected:
    void SetUp() override { support::enterTestFolder(); }

    // Returns how many rounds the host has done.
    static int repeat(const fs::path& host, const std::string& what, int times) {
        const int code = support::runProgram(host, {what, std::to_string(times)},
                                             support::kProcessTimeout * (1 + times / 10));
        EXPECT_EQ(code, 0);
        int done = 0;
        std::string sizes;
        std::ifstream rounds("rounds.txt");
        EXPECT_TRUE(rounds >> done && std::getline(rounds >> std::ws, sizes));
        EXPECT_EQ(done, times);
        RecordProperty("size", sizes);
        return done;
    }

    // A folder with a host, the library and the service of its own.
    static void furnish(const fs::path& folder, const std::string& host) {
        fs::create_directories(folder);
        for (const fs::path& file : {program(host), program("SonviaPCAudioDll").replace_extension(".dll"),
                                     support::programFolder() / "QuPCAudio.exe"}) {
            if (fs::exists(file)) {
                fs::copy_file(file, folder / file.filename());
            }
        }
    }

    support::Standin standin;
};

#ifdef _WIN32 // elsewhere the functions are linked in: nothing is loaded

TEST_F(HostileHost, LibraryMayBeLoadedAndFreedManyTimes) {
    const int done = repeat(program("host_rounds"), "load-unused", 500);
    support::tried("hostile host: load and free", done);
}

TEST_F(HostileHost, LibraryMayBeLoadedAndFreedManyTimesWithSessionsInBetween) {
    const int times = support::processRounds(10, 500);
    standin.play(kOneEvent);
    const int done = repeat(program("host_rounds"), "load-and-live", times);
    EXPECT_EQ(standin.packets(support::kStop).size(), static_cast<std::size_t>(times));
    support::tried("hostile host: load, session and free", done);
}

#endif

TEST_F(HostileHost, ServiceThatDiesAndWhoseFileIsGoneIsMissedAndFoundAgain) {
    const int times = support::processRounds(4, 100);
    furnish("own", "host_rounds");
    standin.play("wait packet key KORUInfo\nnotify int buffering-start 1\nwait packet key "
                 "exitAudioProjection\ncrash\n");
    const int done =
        repeat(fs::current_path() / "own" / program("host_rounds").filename(), "service-gone", times);
    EXPECT_EQ(standin.recorded("crash").size(), static_cast<std::size_t>(times));
    support::tried("hostile service: dies and its executable is gone", done);
}

// Windows lets a program's path have 259 characters; the library's file name is the longest one in the folder.
TEST_F(HostileHost, FolderMayBeLongAndHaveSpacesAndAccents) {
    constexpr std::size_t kMaxFolder = 238;
    const std::u8string accents = u8" d\u00e9j\u00e0 \u00fc\u00f1";
    fs::path folder = fs::current_path() / u8"Sp\u00e9cial folder";
    std::u8string name;
    while (folder.u16string().size() + 1 + 40 < kMaxFolder) {
        folder /= accents.substr(1) + std::u8string(20, 'f');
    }
    name.assign(kMaxFolder - folder.u16string().size() - 1, 'x');
    folder /= name;
    ASSERT_EQ(folder.u16string().size(), kMaxFolder);
    furnish(folder, "host_child");
    standin.play(kOneEvent);
    EXPECT_EQ(support::runProgram(folder / program("host_child").filename(), {"whole-life"}), 0);
    EXPECT_EQ(standin.packets(support::kStop).size(), 1U);
}

} // namespace
