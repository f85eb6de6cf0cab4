#include "support/standin.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <gtest/gtest.h>
#include <uv.h>

#include "support/process.h"
#include "support/wait.h"

namespace support {

namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

bool hasKey(const Json& packet, const std::string& key) {
    const Json::List& entries = packet.at("entries").list();
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Json& entry) { return entry.at("key").text() == key; });
}

} // namespace

void enterTestFolder() {
    static const fs::path kBase = fs::current_path();
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    const fs::path folder = kBase / (std::string(info->test_suite_name()) + "." + info->name());
    fs::current_path(kBase);
    std::error_code absent;
    fs::remove_all(folder, absent);
    fs::create_directories(folder);
    fs::current_path(folder);
}

const Json& entryOf(const Json::List& entries, const std::string& key) {
    for (const Json& entry : entries) {
        if (entry.at("key").text() == key) {
            return entry;
        }
    }
    throw std::runtime_error("no entry " + key);
}

std::size_t countInRecord(const std::string& event) {
    char path[4096] = {};
    std::size_t size = sizeof path;
    if (uv_os_getenv("SONVIA_STANDIN_RECORD", path, &size) != 0) {
        return 0;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string start = "{\"event\":\"" + event + "\"";
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);) {
        count += line.rfind(start, 0) == 0 ? 1U : 0U;
    }
    return count;
}

Standin::~Standin() {
    keepStarted();
    for (const Started& one : mStarted) {
        killProcess(one.pid, one.image);
    }
}

void Standin::keepStarted() {
    if (mRecordPath.empty()) {
        return;
    }
    for (const Json& start : recorded("start")) {
        mStarted.push_back({start.numberOf("pid"), "QuPCAudio.exe"});
    }
    for (const Json& child : recorded("child")) {
        mStarted.push_back({child.numberOf("pid"), "standin_child.exe"});
    }
}

void Standin::play(const std::string& scenario) {
    const fs::path folder = fs::current_path();
    static int played = 0;
    keepStarted();
    // A file of its own: the service of an earlier scenario may still write to its record.
    mRecordPath = (folder / ("record" + std::to_string(++played) + ".jsonl")).string();
    mRead = 0;
    mRecord.clear();
    writeFile(mRecordPath, "");
    writeFile(folder / "scenario.txt", scenario);
    uv_os_setenv("SONVIA_STANDIN_SCENARIO", (folder / "scenario.txt").string().c_str());
    uv_os_setenv("SONVIA_STANDIN_RECORD", mRecordPath.c_str());
    uv_os_setenv("SONVIA_STANDIN_GUARD", "120");
    uv_os_setenv("SONVIA_STANDIN_SHOW_SECRETS", "1");
}

void Standin::signal(const std::string& name) {
    writeFile(name, "");
}

// Reads on from where the last call stopped; a line that is still being written is left for the next one.
const std::vector<Json>& Standin::record() {
    std::ifstream file(mRecordPath, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(mRead));
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::size_t start = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        mRecord.push_back(Json::parse(text.substr(start, end - start)));
        start = end + 1;
    }
    mRead += start;
    return mRecord;
}

std::vector<Json> Standin::recorded(const std::string& event) {
    std::vector<Json> found;
    for (const Json& line : record()) {
        if (line.at("event").text() == event) {
            found.push_back(line);
        }
    }
    return found;
}

std::vector<Json> Standin::packets(std::int64_t command, const std::string& key) {
    std::vector<Json> found;
    for (Json& packet : recorded("packet")) {
        if (packet.at("command").number() == command && (key.empty() || hasKey(packet, key))) {
            found.push_back(std::move(packet));
        }
    }
    return found;
}

testing::AssertionResult Standin::waitForEvent(const std::string& event, std::size_t count) {
    // The service's process may have to start first.
    return reaches(
        count, "lines \"" + event + "\" of the service", [&] { return recorded(event).size(); },
        kProcessTimeout);
}

testing::AssertionResult Standin::waitForNote(const std::string& text) {
    return eventually("the service notes \"" + text + "\"", [&] {
        const std::vector<Json> notes = recorded("note");
        return std::any_of(notes.begin(), notes.end(),
                           [&](const Json& note) { return note.textOf("text") == text; });
    });
}

testing::AssertionResult Standin::waitForPackets(std::size_t count, std::int64_t command,
                                                 const std::string& key) {
    return reaches(count, "packets " + std::to_string(command) + " " + key,
                   [&] { return packets(command, key).size(); });
}

std::int64_t Standin::pid() {
    const std::vector<Json> starts = recorded("start");
    return starts.empty() ? 0 : starts.back().at("pid").number();
}

bool Standin::running() {
    return processRuns(pid(), "QuPCAudio.exe");
}

} // namespace support
