#include "support/service_fixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

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
}

void ServiceTest::start(const std::string& scenario) {
    standin.play(scenario);
    handle = api.init(logFolder().c_str(), SONVIA_LOG_WARNING);
    if (handle == nullptr) {
        throw std::runtime_error("no handle: the service could not be started");
    }
    const bool opensItsPipeAtOnce =
        scenario.find("no-pipe") == std::string::npos && scenario.find("listen") == std::string::npos;
    if (opensItsPipeAtOnce && !standin.waitForEvent("listen")) {
        throw std::runtime_error("the service did not open its pipe");
    }
}

void ServiceTest::startAndConfigure(const std::string& scenario) {
    start(scenario);
    const AudioServiceParam param = completeParam();
    if (!api.setParam(handle, &param)) {
        throw std::runtime_error("setParam refused a complete record");
    }
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
    std::string text;
    for (const fs::directory_entry& entry :
         fs::recursive_directory_iterator(fs::path(folder).parent_path())) {
        if (entry.is_regular_file() && entry.path().extension() == ".log") {
            std::ifstream file(entry.path(), std::ios::binary);
            text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
    }
    return text;
}

} // namespace support
