// Byte 0 of an input chooses the settings of a logger, byte 1 what its version file holds (77: and more old files than a
// history keeps). Then come the files of its folder: a byte for the content and a name, each ended by a line feed. The
// logger reads its history and writes a few lines, on days of their own and within one second. The files and the
// history must be those of a plain model.

#include "log/rotation.h"
#include "support/input.h"
#include "support/require.h"
#include "unit/log/fake_clock.h"
#include "unit/log/log_model.h"
#include "unit/log/memory_files.h"
#include "unit/log/recording_console.h"

#include <algorithm>
#include <string>

using namespace orvel::log4z;

namespace {

constexpr std::size_t kMostFiles = 60;
constexpr int kMostLarge = 1;
constexpr unsigned kMany = 77;              ///< as byte 1: more old files than a history keeps
constexpr std::int64_t kStart = 1773043200; // 2026-03-09 08:00:00

/// One way to write a path: no empty components, single forward slashes.
std::string plainPath(const std::string& text) {
    std::string path;
    for (const char c : text) {
        const bool isSlash = c == '/' || c == '\\';
        if (!isSlash) {
            path += c;
        } else if (!path.empty() && path.back() != '/') {
            path += '/';
        }
    }
    while (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

/// A megabyte is what the limits count in. Where logs are packed a few hundred bytes must do: packing takes its time.
std::string contentOf(char kind, bool zip, int& large) {
    if (kind == 'M' && (zip || large < kMostLarge)) {
        ++large;
        return std::string(zip ? 600 : 1048576, 'o');
    }
    if (kind == 'Z') {
        return std::string("PK\x03\x04 packed ") + "PK\x05\x06" +
               std::string(18, '\0'); // a whole archive's end
    }
    return std::string(static_cast<unsigned char>(kind) % 8u, 'o');
}

void takeFiles(Input& input, MemoryFiles& disk, LogModel& model) {
    const oracle::Bytes rest = input.rest();
    int large = 0;
    std::size_t count = 0;
    for (auto begin = rest.begin(); begin != rest.end() && count < kMostFiles; ++count) {
        const auto end = std::find(begin, rest.end(), std::uint8_t{'\n'});
        const std::string line(begin, end);
        begin = end == rest.end() ? end : end + 1;
        const std::string name = plainPath(line.empty() ? line : line.substr(1));
        if (name.empty()) {
            continue;
        }
        const std::string content = contentOf(line[0], model.settings.zip, large);
        disk.put("logs/" + name, content);
        model.files["logs/" + name] = content;
    }
}

void choose(Input& input, LoggerSlot& slot, MemoryFiles& disk, LogModel& model) {
    const unsigned flags = input.takeByte();
    ModelSettings& set = model.settings;
    set.zip = (flags & 1u) != 0;
    set.monthdir = (flags & 2u) != 0;
    set.type = static_cast<int>(flags >> 2 & 3u);
    set.reserve = (flags & 16u) != 0 ? 30 * 86400 : 0;
    set.limitMb = 1;
    set.totalMb = (flags & 32u) != 0 ? kNoLimit : 2;
    set.version = (flags & 64u) != 0 ? "2.1" : "";
    slot.enable = true;
    slot.name = set.name;
    slot.path = set.path;
    slot.isZip = set.zip;
    slot.monthdir = set.monthdir;
    slot.reserveDelType = static_cast<ReserveDelType>(set.type);
    slot.reserveSeconds = set.reserve;
    slot.limitSizeMb = set.limitMb;
    slot.totalSizeMb = set.totalMb;
    slot.version = set.version;
    constexpr const char* kStored[] = {"", "2.1", "2.1 \r\n", "2.0"};
    const unsigned second = input.takeByte();
    const unsigned stored = second % 5u;
    takeFiles(input, disk, model);
    for (int day = second == kMany ? 511 : 0; day > 0; --day) {
        const std::string name = "logs/sonvia_Test_" +
                                 std::to_string((1900 + day / 336) * 1000000 + (day / 28 % 12 + 1) * 10000 +
                                                (day % 28 + 1) * 100) +
                                 ".log";
        disk.put(name, "o");
        model.files[name] = "o";
    }
    if (stored < 4) {
        disk.put("logs/sonvia_version", kStored[stored]);
        model.files["logs/sonvia_version"] = kStored[stored];
    }
}

void requireSameFiles(const MemoryFiles& disk, const LogModel& model) {
    const std::vector<std::string> paths = disk.paths();
    require(paths.size() == model.files.size(), "as many files");
    std::size_t at = 0;
    for (const auto& [path, content] : model.files) {
        require(paths[at++] == path, "the same files");
        require(disk.content(path) == content, "the same content");
    }
}

void requireSameHistory(const LoggerSlot& slot, const LogModel& model) {
    require(slot.history.count() == model.history.size(), "as many in the history");
    require(slot.history.writeLength() == model.historyBytes(), "the same total");
    if (!model.history.empty()) {
        require(plainPath(slot.history.oldest().path) == model.history.front().path, "the same oldest");
        require(slot.history.oldest().time == model.history.front().time, "its time");
        require(plainPath(slot.history.newest().path) == model.history.back().path, "the same newest");
        require(slot.history.newest().time == model.history.back().time, "its time");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    FakeClock clock;
    clock.set(kStart);
    MemoryFiles disk;
    RecordingConsole screen;
    ConsoleEcho console(screen);
    Rotation rotation(clock, disk, console);
    LoggerSlot slot;
    LogModel model;
    choose(input, slot, disk, model);
    rotation.loadHistory(0, slot);
    model.load(kStart);
    requireSameFiles(disk, model);
    requireSameHistory(slot, model);
    constexpr std::int64_t kSteps[] = {0, 0, 1, 86400, 0, -86400, 40 * 86400};
    for (const std::int64_t step : kSteps) {
        clock.advance(step);
        const std::int64_t now = clock.now().seconds;
        require(rotation.openFor(slot, now), "a file is open");
        slot.file.write("one line\r\n", 10);
        slot.file.close(); // as after a changed setting
        model.line(kLevelFatal, "one line\r\n", now, now);
        model.close();
        requireSameHistory(slot, model);
    }
    requireSameFiles(disk, model);
    return 0;
}
