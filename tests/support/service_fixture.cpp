#include "support/service_fixture.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "support/last_lines.h"

namespace support {

namespace fs = std::filesystem;

void ServiceTest::SetUp() {
    logFolder();
    enterTestFolder();
    events.reset();
}

void ServiceTest::TearDown() {
    stop();
    events.reset();
    if (HasFailure()) {
        std::cout << "The library's log:\n" << lastLines(logText()) << std::flush;
    }
}

void ServiceTest::start(const std::string& scenario) {
    standin.play(scenario);
    handle = api.init(logFolder().c_str(), SONVIA_LOG_WARNING);
    if (handle == nullptr) {
        throw std::runtime_error("no handle: the service could not be started");
    }
    const bool opensItsPipeAtOnce =
        scenario.find("no-pipe") == std::string::npos && scenario.find("listen") == std::string::npos;
    if (opensItsPipeAtOnce) {
        if (const testing::AssertionResult listens = standin.waitForEvent("listen"); !listens) {
            throw std::runtime_error(listens.message());
        }
    }
}

void ServiceTest::startAndConfigure(const std::string& scenario) {
    start(scenario);
    const AudioServiceParam param = completeParam();
    if (!api.setParam(handle, &param)) {
        throw std::runtime_error("setParam refused a complete record");
    }
}

void ServiceTest::playConnected(const std::string& steps) {
    startAndConfigure(kAfterDeviceInformation + steps + "\nnotify int change-mode " +
                      std::to_string(kLastMode) + '\n');
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, kLastMode)));
}

void ServiceTest::stop() {
    if (handle != nullptr) {
        EXPECT_TRUE(api.uninit(handle));
        handle = nullptr;
    }
}

std::string logFolder() {
    static const std::string kFolder = [] {
        const fs::path folder = fs::current_path() / "logs";
        std::error_code absent;
        fs::remove_all(folder, absent);
        fs::create_directories(folder);
        return (folder / "host").string();
    }();
    return kFolder;
}

std::string logText(const std::string& folder) {
    // Where a backslash is no separator the folder has it in its name.
    const fs::path logs = folder + "\\PCAudiodll";
    const std::regex month(R"(\d{4}_\d\d)");
    const std::regex name(R"(sonvia_Sonvia_[-\d]+\.log)");
    std::string text;
    std::error_code none;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(logs, none)) {
        if (entry.path().parent_path().parent_path() == logs &&
            std::regex_match(entry.path().parent_path().filename().string(), month) &&
            std::regex_match(entry.path().filename().string(), name)) {
            std::ifstream file(entry.path(), std::ios::binary);
            text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
    }
    return text;
}

std::ostream& operator<<(std::ostream& out, const LoggedLine& line) {
    return out << line.level << ' ' << line.tag << ": " << line.function << ' ' << line.text;
}

std::vector<LoggedLine> loggedLines(const std::string& folder, const std::string& tag) {
    // date time [process] [thread] LEVEL tag: [function:line]text
    const std::regex form(R"(\S+ \S+ \[[^\]]*\] \[\d+\] (\w+) +(\S+): \[(.*):\d+\](.*))");
    std::istringstream text(logText(folder));
    std::vector<LoggedLine> lines;
    for (std::string line; std::getline(text, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        std::smatch parts;
        if (!std::regex_match(line, parts, form)) {
            lines.push_back({"no line of the log's form", {}, {}, line});
        } else if (tag.empty() || parts[2] == tag) {
            lines.push_back({parts[1], parts[2], parts[3], parts[4]});
        }
    }
    return lines;
}

} // namespace support
