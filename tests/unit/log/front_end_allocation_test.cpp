// Memory that runs out anywhere in the life of a logger, on the system's own files.

#include "log/front_end.h"
#include "log/init_log.h"
#include "log/write_log.h"
#include "support/counted_malloc.h"
#include "support/effort.h"
#include "support/log/fake_clock.h"
#include "support/log/line_account.h"
#include "support/log/test_folder.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <string>

using namespace support;
using namespace orvel;
using namespace orvel::log4z;

namespace {

/// Allocates nothing for what it receives.
class SilentConsole final : public platform::Console {
public:
    bool printColoured(unsigned, const char*) override { return true; }

    void print(const char*) override {}
};

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// One logger's life. What is prepared here allocates nothing later.
class Life {
public:
    explicit Life(const std::string& folder) : mFolder(folder), mConfigFile(folder + "/log.ini") {
        mClock.setLocal({2026, 3, 9, 8, 0, 0});
        std::ofstream(mConfigFile) << "[Test]\nlimitsize=1\n[Other]\nname=sonvia_Configured\n";
        std::ofstream(folder + "/sonvia_Test_2026-03-08-08-00-00.log") << std::string(3000, 'o');
        std::ofstream(folder + "/sonvia_version") << "2";
    }

    /// From the first request to the last one.
    void live() {
        try {
            manager = std::make_unique<LogerManager>(LogSystem{mClock, platform::systemFiles(), mConsole,
                                                               "C:\\a folder with a long name\\host.exe"});
        } catch (const std::bad_alloc&) {
            return; // the caller's to take
        }
        id = manager->createLogger("Test");
        isSetUp = manager->setLoggerPath(id, mFolder.c_str());
        isSetUp = manager->setLoggerVersion(id, "2") && isSetUp;
        manager->setLoggerDisplay(id, true);
        manager->setLoggerZip(id, true);
        isStarted = manager->start();
        isSetUp = isSetUp && isStarted;
        for (int day = 0; day < 3; ++day) {
            line();
            mClock.advance(day == 1 ? 1 : 86400);
            manager->setLoggerName(id, "sonvia_Renamed and so long that a text of its own is needed for it");
        }
        manager->findLogger("Test");
        manager->config(mConfigFile.c_str());
        manager->updateConfig();
        manager->loadHistory();
        line("a_source_file_with_a_long_name_of_its_own.cpp");
        manager->stop();
    }

    void line(const char* source = nullptr) {
        LogRecord* record = manager->makeRecord(id, kLevelError);
        if (record != nullptr) {
            const int length = std::snprintf(record->content + record->contentLength, 200,
                                             "%0100d #number %d whole", 0, attempts);
            record->contentLength += length;
            manager->pushLog(record, source, 1);
        }
        ++attempts;
        EXPECT_TRUE(!isStarted || manager->flush(kTimeoutMs));
    }

    /// The numbered lines in all logs and archives.
    std::size_t linesFound() const {
        std::size_t found = 0;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder)) {
            const std::string text = readAll(entry.path().string());
            const std::string lines = entry.path().extension() == ".zip" ? unpackedText(text) : text;
            for (std::size_t at = 0; (at = lines.find("#number ", at)) != std::string::npos; ++at) {
                ++found;
            }
        }
        return found;
    }

    int id = -1;
    bool isSetUp = false;
    bool isStarted = false;
    int attempts = 0;

private:
    const std::string mFolder;
    const std::string mConfigFile;
    FakeClock mClock;
    SilentConsole mConsole;

public:
    std::unique_ptr<LogerManager> manager; ///< last: its end still uses the clock and the console
};

} // namespace

TEST(LogWithoutMemory, WhicheverRequestIsRefusedTheLifeGoesOnAndEveryLineIsFiledOrCounted) {
#ifdef _WIN32
    const int step = longForm() ? 1 : 6; // a life takes many times as long under Wine
#else
    const int step = 1;
#endif
    bool wasRefused = true;
    for (int failing = 1; wasRefused; failing += step) {
        SCOPED_TRACE("request " + std::to_string(failing));
        TestFolder folder;
        Life life(folder.path());
        {
            CountedMalloc counted(failing);
            life.live();
            wasRefused = counted.stop() >= failing;
        }
        if (life.manager == nullptr) {
            continue;
        }
        if (life.isSetUp) {
            EXPECT_EQ(life.linesFound() + life.manager->totalLinesLost(),
                      static_cast<std::size_t>(life.attempts));
        }
        // And the next one is whole.
        const int id = life.manager->createLogger("Test");
        ASSERT_GE(id, 0);
        life.id = id;
        life.manager->enableLogger(id, true);
        ASSERT_TRUE(life.manager->setLoggerPath(id, folder.path().c_str()));
        const std::size_t before = life.linesFound();
        ASSERT_TRUE(life.manager->start());
        life.isStarted = true;
        life.line();
        EXPECT_EQ(life.linesFound(), before + 1);
        ASSERT_FALSE(::testing::Test::HasFailure());
    }
}

// The process's one engine: each call goes on from what the last one has left.
TEST(LogWithoutMemory, AnInitialisationThatIsRefusedMemoryIsMadeGoodByTheNext) {
    TestFolder folder;
    int failing = 1;
    for (; !logFrontEnd.initialised.load() && failing < 200; ++failing) {
        CountedMalloc counted(failing);
        INITLOG(folder.path().c_str(), 0);
        counted.stop();
    }
    EXPECT_GT(failing, 5) << "so many were refused one after the other";
    ASSERT_TRUE(logFrontEnd.initialised.load());
    EXPECT_EQ(LogerManager::instance().slot(logFrontEnd.loggerId).settings.path, folder.path() + "/");
    EXPECT_EQ(LogerManager::instance().slot(logFrontEnd.loggerId).settings.version, "2.1.2110122");
    writeLog(kLogError, "tag", "the first line");
    EXPECT_TRUE(FLUSHLOG());
    LogerManager::instance().stop();
}
