#include "log/configuration.h"

#include "log/config_text.h"

#include <mutex>
#include <new>

namespace orvel::log4z {

namespace {

constexpr char kFrame[] = " !!! !!! !!! !!!\r\n"; // around the messages about a configuration

} // namespace

bool LogConfiguration::load(const char* configFile) {
    const char* const file = configFile == nullptr ? "" : configFile;
    std::string text;
    try {
        {
            const std::lock_guard guard(mLock);
            if (mHasFile) {
                // Kept for compatibility: two spaces after the comma, as in every text of this message so far. A
                // search for the message would miss the corrected one.
                mServices.console.print(
                    "%s !!! !!! log4z configure error: too many calls to Config. the old config file=%s,  "
                    "the new config file=%s !!! !!! \r\n%s",
                    kFrame, mFile.c_str(), file, kFrame);
                return false;
            }
            mFile = file;
            mHasFile = true;
        }
        if (readFile(text)) {
            return applyIfChanged(text);
        }
    } catch (const std::bad_alloc&) {
        text.clear(); // as a file that cannot be read
    }
    mServices.console.print("%s !!! !!! log4z load config file error. filename=%s  !!! !!! \r\n%s", kFrame,
                            file, kFrame);
    return false;
}

bool LogConfiguration::applyText(const char* text) {
    bool applied = false;
    try {
        applied = text != nullptr && applyIfChanged(text);
    } catch (const std::bad_alloc&) {
        applied = false; // as a text that cannot be read
    }
    if (!applied) {
        mServices.console.print("%s !!! !!! log4z load config file error \r\n%s", kFrame, kFrame);
    }
    return applied;
}

bool LogConfiguration::update() {
    try {
        std::string text;
        return readFile(text) && applyIfChanged(text);
    } catch (const std::bad_alloc&) {
        return false; // the checksum stands: the next call tries again
    }
}

void LogConfiguration::checkIfDue() {
    const std::uint32_t interval = mCheckInterval.load(std::memory_order_relaxed);
    if (interval == 0) {
        return;
    }
    const std::int64_t now = mServices.clock.now().seconds;
    if (now - mLastCheck > interval || now < mLastCheck) {
        update();
        mLastCheck = now;
    }
}

bool LogConfiguration::readFile(std::string& text) {
    std::string path;
    {
        const std::lock_guard guard(mLock);
        if (!mHasFile) {
            return false;
        }
        path = mFile;
    }
    const auto file = mServices.files.open(path, platform::OpenMode::Read);
    if (file == nullptr) {
        return false;
    }
    char piece[4096];
    for (std::size_t count = 0; (count = file->read(piece, sizeof piece)) > 0;) {
        text.append(piece, count);
    }
    return true;
}

bool LogConfiguration::applyIfChanged(std::string_view text) {
    const std::lock_guard guard(mLock);
    const std::uint32_t checksum = configChecksum(text);
    if (checksum == mChecksum) {
        return true;
    }
    const ConfigText parsed = parseConfigText(text);
    for (const std::string& warning : parsed.warnings) {
        mServices.console.report("%s", warning.c_str());
    }
    const std::uint32_t refusedBefore = mRegistry.changesRefused();
    bool allMade = true;
    for (const ConfigSection& section : parsed.sections) {
        const int id = mRegistry.create(section.name.c_str());
        allMade = allMade && id >= 0;
        for (const auto& [key, value] : section.pairs) {
            if (const auto change = changeOfPair(key, value)) {
                mRegistry.change(id, change->code, change->number, change->text); // refused without a logger
            }
        }
    }
    // Changes that an allocation failure has cost are tried again at the next check of the file.
    allMade = allMade && mRegistry.changesRefused() == refusedBefore;
    if (allMade) {
        mChecksum = checksum;
    }
    return allMade;
}

} // namespace orvel::log4z
