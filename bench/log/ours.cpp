#include "subjects.h"

#include "log/front_end.h"
#include "log/write_log.h"

#include <cstdlib>

namespace {

using namespace orvel;
using namespace orvel::log4z;

/// Real time, but the log sees a hundred seconds in one: at full speed more than five files are filled in a second,
/// and there are only five names for one. So that every line can be counted no file is deleted either.
class FastClock final : public platform::Clock {
public:
    platform::Moment now() override {
        const std::int64_t fast = mStart + (milliseconds() - mStart) * 100;
        return {fast / 1000, static_cast<std::uint32_t>(fast % 1000)};
    }

    std::uint64_t steadyMilliseconds() override { return platform::systemClock().steadyMilliseconds(); }

    platform::CalendarTime toLocal(std::int64_t seconds) override { return mSystem.toLocal(seconds); }

    std::int64_t fromLocal(const platform::CalendarTime& local) override { return mSystem.fromLocal(local); }

    void sleep(unsigned duration) override { mSystem.sleep(duration); }

private:
    std::int64_t milliseconds() {
        const platform::Moment real = mSystem.now();
        return real.seconds * 1000 + real.milliseconds;
    }

    platform::Clock& mSystem = platform::systemClock();
    const std::int64_t mStart = milliseconds();
};

/// Swallows the engine's own messages, which would be printed among the results.
class NoConsole final : public platform::Console {
public:
    bool printColoured(unsigned, const char*) override { return false; }

    void print(const char*) override {}
};

/// The real engine behind the real front end.
class Ours final : public Subject {
public:
    explicit Ours(const std::string& folder) : mManager(system()) {
        const int id = mManager.createLogger("Sonvia");
        mManager.setLoggerPath(id, folder.c_str());
        mManager.setLoggerReserveDelType(id, kReserveBySize);
        mManager.setLoggerTotalsize(id, 0);
        mManager.setLoggerDisplay(id, false);
        if (!mManager.start()) {
            std::abort();
        }
        logFrontEnd.manager.store(&mManager);
        logFrontEnd.loggerId.store(id);
        logFrontEnd.initialised.store(true);
    }

    ~Ours() override {
        logFrontEnd.initialised.store(false);
        mManager.stop();
    }

    void write(Line line, int number) override {
        if (line == Line::Short) {
            writeLog(kLogInfo, kTag, kShortFormat, kFunction, 395, number);
        } else {
            writeLog(kLogInfo, kTag, kLongFormat, kFunction, 395, number, kPhone, 250, 400, 2);
        }
    }

    void drain() override {
        while (!mManager.flush(60000)) {
        }
    }

private:
    static LogSystem system() {
        LogSystem real = LogSystem::real();
        static FastClock clock;
        static NoConsole console;
        return {clock, real.files, console, real.hostFileName};
    }

    LogerManager mManager;
};

} // namespace

std::unique_ptr<Subject> makeOurs(const std::string& folder) {
    return std::make_unique<Ours>(folder);
}
