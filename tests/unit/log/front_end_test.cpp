// The front end writes through the process's one engine, which can be initialised once: these tests run in a process
// of their own and build on each other, in the order of this file.

#include "log/front_end.h"
#include "log/init_log.h"
#include "log/init_settings.h"
#include "log/log_folder.h"
#include "log/write_log.h"
#include "platform/thread_id.h"
#include "support/log/log_fixture.h"
#include "support/output_capture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace support;
using namespace orvel;
using namespace orvel::log4z;

namespace {

const std::string kFolder = "front_end_logs";

std::string threadText() {
    return "[" + std::to_string(platform::currentThreadId()) + "]";
}

/// What is printed while `body` runs, with line ends as on POSIX.
template <typename Body>
std::string printedBy(Body body) {
    OutputCapture output;
    body();
    return output.end();
}

/// The lines of all log files, without their ends.
std::vector<std::string> fileLines() {
    EXPECT_TRUE(FLUSHLOG());
    std::vector<std::string> paths;
    for (const FoundLog& log : listLogs(platform::systemFiles(), kFolder, "sonvia_Sonvia", nullptr)) {
        paths.push_back(log.path);
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> lines;
    for (const std::string& path : paths) {
        std::ifstream file(path, std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        for (std::size_t end = 0; (end = text.find("\r\n")) != std::string::npos; text.erase(0, end + 2)) {
            lines.push_back(text.substr(0, end));
        }
        EXPECT_EQ(text, "") << "a line without an end";
    }
    return lines;
}

std::string lastLine() {
    const std::vector<std::string> lines = fileLines();
    return lines.empty() ? "" : lines.back();
}

} // namespace

TEST(FrontEnd, BeforeInitialisationANullTagPrintsThreadLetterAndMessage) {
    EXPECT_EQ(printedBy([] { writeLog(0, nullptr, "x"); }), threadText() + " D : x\n");
}

TEST(FrontEnd, EveryLevelHasItsLetterAndTwoPrintsDForCompatibility) {
    const std::pair<int, const char*> letters[] = {{0, "D"}, {1, "I"}, {2, "D"}, {3, "W"},
                                                   {4, "E"}, {5, "D"}, {99, "D"}};
    for (const auto& [level, letter] : letters) {
        EXPECT_EQ(printedBy([level = level] { writeLog(level, "tag", "number %d", level); }),
                  threadText() + " " + letter + " tag: number " + std::to_string(level) + "\n");
    }
}

TEST(FrontEnd, ALevelBelowTheThresholdPrintsNothing) {
    EXPECT_EQ(printedBy([] { writeLog(-1, "tag", "x"); }), "");
}

TEST(FrontEnd, BeforeInitialisationALongMessageIsTruncated) {
    const std::string printed = printedBy([] { writeLog(4, "t", "%s", std::string(10000, 'm').c_str()); });
    EXPECT_EQ(printed.size(), (threadText() + " E t: \n").size() + 4095);
}

TEST(FrontEnd, BeforeInitialisationAMessageEndsAtItsZeroByte) {
    EXPECT_EQ(printedBy([] { writeLog(4, "t", "a%cb", 0); }), threadText() + " E t: a\n");
}

TEST(FrontEnd, AThresholdRaisedWhileAMessageIsFormattedIsObeyed) {
    logFrontEnd.threshold = 4;
    EXPECT_EQ(printedBy([] { deliverMessage(3, "t", "too low by now"); }), "");
    EXPECT_EQ(printedBy([] { deliverMessage(4, "t", "high enough"); }), threadText() + " E t: high enough\n");
    logFrontEnd.threshold = 0;
}

TEST(FrontEnd, BeforeInitialisationThereIsNothingToFlush) {
    EXPECT_TRUE(FLUSHLOG());
}

TEST(FrontEnd, InitialisationLogsItsSettingsWithAFixedLineForCompatibility) {
    std::filesystem::remove_all(kFolder);
    const std::string printed = printedBy([] { INITLOG(kFolder.c_str(), 0); });
    EXPECT_EQ(printed.find(
                  threadText() + " W Sonvia_Default: [orvel::INITLOG:395]binit:0 path:" + kFolder +
                  " tag:Sonvia key:Sonvia reserveDelType:size level:0 reserveTimeSec:172800 singleSizeMb:2 "
                  "totalSizeMb:5 isZip:0\n"),
              0u)
        << printed;
    EXPECT_EQ(logFrontEnd.threshold.load(), 0);
    EXPECT_EQ(*logFrontEnd.tag, "Sonvia");
    EXPECT_TRUE(LogerManager::instance().isLoggerEnabled(logFrontEnd.loggerId.load()));
}

TEST(FrontEnd, LinesGoToTheFileWithTheirLevelWord) {
    const std::pair<int, const char*> words[] = {{0, "DEBUG"}, {1, "INFO "}, {2, "INFO "}, {3, "WARN "},
                                                 {4, "ERROR"}, {5, "INFO "}, {99, "INFO "}};
    for (const auto& [level, word] : words) {
        writeLog(level, kLogTagSession, "[%s:%d]level %d", "Test::body", 7, level);
        const std::string line = lastLine();
        EXPECT_EQ(line.substr(line.find("] ", line.find("] [") + 1) + 2),
                  std::string(word) + " Sonvia_PCAudioMessage: [Test::body:7]level " + std::to_string(level));
    }
}

TEST(FrontEnd, ASecondInitialisationLogsItsSettingsAndChangesNothingElse) {
    INITLOG("elsewhere", 4);
    const std::string line = lastLine();
    EXPECT_NE(
        line.find("WARN  Sonvia_Default: [orvel::INITLOG:395]binit:1 path:elsewhere tag:Sonvia key:Sonvia "
                  "reserveDelType:size level:4 "),
        std::string::npos)
        << line;
    EXPECT_EQ(logFrontEnd.threshold.load(), 0);
    EXPECT_EQ(LogerManager::instance().activeLoggerCount(), 1u);
    EXPECT_FALSE(std::filesystem::exists("elsewhere"));
    INITLOG(nullptr, 0);
    EXPECT_NE(lastLine().find(" path:null "), std::string::npos);
}

TEST(FrontEnd, FilesAreInTheirMonthsFolderAndTheVersionNextToIt) {
    EXPECT_TRUE(std::filesystem::exists(kFolder + "/sonvia_version"));
    bool inMonth = false;
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        inMonth = inMonth || (entry.is_directory() && entry.path().filename().string().size() == 7);
    }
    EXPECT_TRUE(inMonth);
}

TEST(FrontEnd, ALongMessageIsTruncatedInTheFileToo) {
    writeLog(4, "t", "%s", std::string(10000, 'm').c_str());
    const std::string line = lastLine();
    EXPECT_EQ(line.size() - line.find("ERROR t: ") - 9, 4095u);
}

TEST(FrontEnd, AMessageInTheFileEndsAtItsZeroByte) {
    writeLog(4, "t", "a%cb", 0);
    const std::string line = lastLine();
    EXPECT_EQ(line.substr(line.find("ERROR t: ")), "ERROR t: a");
}

TEST(FrontEnd, AfterInitialisationAThresholdRaisedWhileAMessageIsFormattedIsObeyedToo) {
    const std::size_t before = fileLines().size();
    logFrontEnd.threshold = 4;
    deliverMessage(3, "t", "too low by now");
    logFrontEnd.threshold = 0;
    EXPECT_EQ(fileLines().size(), before);
    EXPECT_EQ(printedBy([] {
                  deliverMessage(0, "t", "formatted before the initialisation, filed after it");
                  FLUSHLOG();
              }).find(threadText() + " D "),
              std::string::npos)
        << "the flag is looked at after the formatting";
    EXPECT_EQ(fileLines().size(), before + 1);
}

TEST(FrontEnd, AMessageIsFormattedBeforeItsRecordIsTaken) {
    // Whatever the logger's own clock does, the text is that of the call.
    class ClockThatChangesTheText final : public platform::Clock {
    public:
        platform::Moment now() override {
            if (std::this_thread::get_id() == caller) { // the writer looks as well
                text[0] = 'B';
            }
            return {};
        }

        std::uint64_t steadyMilliseconds() override { return platform::systemClock().steadyMilliseconds(); }

        platform::CalendarTime toLocal(std::int64_t) override { return {}; }

        std::int64_t fromLocal(const platform::CalendarTime&) override { return 0; }

        void sleep(unsigned) override {}

        const std::thread::id caller = std::this_thread::get_id();
        char text[2] = "A";
    } clock;

    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    const int id = manager.createLogger("Test");
    manager.setLoggerPath(id, "logs");
    manager.setLoggerDisplay(id, false);
    ASSERT_TRUE(manager.start());
    ASSERT_TRUE(manager.loadHistory());
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    clock.text[0] = 'A';
    LogerManager* const real = logFrontEnd.manager.exchange(&manager);
    const int realId = logFrontEnd.loggerId.exchange(id);
    writeLog(kLogError, "tag", "%s", clock.text);
    logFrontEnd.manager = real;
    logFrontEnd.loggerId = realId;
    manager.stop();
    ASSERT_EQ(files.pathsWith(".log").size(), 1u);
    EXPECT_NE(files.content(files.pathsWith(".log")[0]).find("ERROR tag: A\r\n"), std::string::npos);
}

TEST(FrontEnd, FourThreadsWriteWholeLines) {
    LogerManager::instance().setLoggerDisplay(0, false);
    const std::size_t before = fileLines().size();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < 500; ++i) {
                writeLog(1, "many", "[%s:%d]line %d of thread %d.", "body", 1, i, thread);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(fileLines().size(), before + 2000);
}
