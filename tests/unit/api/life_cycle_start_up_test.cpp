// Start-up without a service in the program's folder. It initialises logging, so the lines are looked for in the
// log's files, or in the output while there are none.

#include "SonviaPCAudioDll.h"
#include "log/init_log.h"
#include "log/write_log.h"
#include "support/output_capture.h"
#include "transport/loop_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char* kLogDir = "start-up-log";

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

/// Runs `body` and gives all that the library has logged meanwhile.
template <typename Body>
std::string logOf(Body body) {
    const auto filed = [] {
        std::string text;
        std::error_code ignored;
        for (const fs::directory_entry& entry :
             fs::recursive_directory_iterator(fs::current_path(), ignored)) {
            if (entry.path().string().find(kLogDir) != std::string::npos && entry.is_regular_file()) {
                std::ostringstream content;
                content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
                text += content.str();
            }
        }
        return text;
    };
    const std::size_t before = filed().size();
    support::OutputCapture output;
    body();
    orvel::FLUSHLOG();
    const std::string shown = output.end();
    const std::string all = filed();
    return all.empty() ? shown : all.substr(before);
}

class StartUp : public testing::Test {
protected:
    /// Removes what an earlier run has left. Where a backslash is no separator the log's folder has it in its name.
    static void SetUpTestSuite() {
        std::vector<fs::path> old;
        for (const fs::directory_entry& entry : fs::directory_iterator(fs::current_path())) {
            if (entry.path().filename().string().rfind(kLogDir, 0) == 0) {
                old.push_back(entry.path());
            }
        }
        for (const fs::path& path : old) {
            fs::remove_all(path);
        }
    }
};

} // namespace

TEST_F(StartUp, WithoutAServiceItIsNullAndTheCauseIsLoggedOnce) {
    AudioServiceHandle* handle = nullptr;
    const std::string log = logOf([&handle] { handle = initSonviaAudioService(kLogDir, SONVIA_LOG_DEBUG); });
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(count(log, "QuPCAudio.exe start failed!!!!"), 1U);
    EXPECT_EQ(count(log, "]the system's error is 2"), 1U); // file not found
    EXPECT_EQ(count(log, "]initSonviaAudioService"), 1U);
    EXPECT_LT(log.find("]initSonviaAudioService"), log.find("]QuPCAudio.exe start failed!!!!"));
}

TEST_F(StartUp, MayBeRepeatedAfterAFailure) {
    const std::string log = logOf([] {
        EXPECT_EQ(initSonviaAudioService(kLogDir, SONVIA_LOG_DEBUG), nullptr);
        EXPECT_EQ(initSonviaAudioService(kLogDir, SONVIA_LOG_DEBUG), nullptr);
    });
    EXPECT_EQ(count(log, "]QuPCAudio.exe start failed!!!!"), 2U);
    EXPECT_EQ(count(log, "]kill QuPCAudio process"), 2U); // at every start-up
}

TEST_F(StartUp, ANullLogDirIsAnEmptyOne) {
    std::string log = logOf([] { EXPECT_EQ(initSonviaAudioService(nullptr, SONVIA_LOG_DEBUG), nullptr); });
    EXPECT_EQ(count(log, "]QuPCAudio.exe start failed!!!!"), 1U);
}

TEST_F(StartUp, LinesOfTheLoopGoToTheLogButForLevelTwoAndUnknownOnes) {
    initSonviaAudioService(kLogDir, SONVIA_LOG_DEBUG);
    const std::string log = logOf([] {
        for (int level = -1; level <= 6; ++level) {
            logLoopLine(level, "SomeTag", "a loop line of level %d, 100%% as it is: %s", level, "%n%s%d");
        }
    });
    const std::pair<int, const char*> words[] = {{0, "DEBUG"}, {1, "INFO "}, {3, "WARN "}, {4, "ERROR"}};
    for (const auto& [level, word] : words) {
        const std::string text = std::string(word) + " SomeTag: a loop line of level " +
                                 std::to_string(level) + ", 100% as it is: %n%s%d";
        EXPECT_EQ(count(log, text), 1U) << level;
    }
    EXPECT_EQ(count(log, "a loop line"), 4U);
}
