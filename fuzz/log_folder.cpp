// Byte 0 of an input chooses the settings of a logger. Bytes 1 and 2 say how long the text of its version file is, or
// that there is none, and whether there are more old files than a history keeps; the text follows. Then come the files
// of its folder: a byte for the kind of the content, bytes of the content in one kind, and a name, ended by a line feed.
// The logger reads its history, writes a few lines, on days of their own and within one second, and reads its history
// anew. The files and the history must be those of a plain model.

#include "log/logger_slot.h"
#include "support/input.h"
#include "support/log/fake_clock.h"
#include "support/log/log_model.h"
#include "support/log/memory_files.h"
#include "support/log/recording_console.h"
#include "support/require.h"

#include <optional>
#include <string>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

constexpr std::size_t kMaxFiles = 60;
constexpr std::size_t kMaxName = 255;
constexpr int kMaxLarge = 1;
constexpr std::int64_t kStart = 1773043200; // 2026-03-09 08:00:00

/// Any bytes, and perhaps the mark of an archive's last record with its 18 bytes, or more, or fewer. With bit 6 they
/// lie about where a reader of 4096 bytes takes its second piece.
std::string takeBytes(Input& input) {
    const unsigned form = input.takeByte();
    std::string content((form & 64u) != 0 ? 4080 : 0, 'o');
    content += oracle::text(input.take(form % 64u));
    if ((form & 128u) != 0) {
        content += "PK\x05\x06";
        content += oracle::text(input.take(input.takeByte() % 32u));
    }
    return content;
}

/// A megabyte is what the limits count in. Where logs are packed a few hundred bytes must do: packing takes its time.
std::string takeContent(Input& input, bool zip, int& large) {
    const unsigned kind = input.takeByte();
    if (kind == 'M' && (zip || large < kMaxLarge)) {
        ++large;
        return std::string(zip ? 600 : 1048576, 'o');
    }
    if (kind == 'Z') {
        return std::string("PK\x03\x04 packed ") + "PK\x05\x06" +
               std::string(18, '\0'); // a whole archive's end
    }
    return kind == 'B' ? takeBytes(input) : std::string(kind % 8u, 'o');
}

/// A file of the folder, for the library and for the model.
void put(MemoryFiles& disk, LogModel& model, const std::string& name, const std::string& content) {
    disk.put("logs/" + name, content);
    model.files["logs/" + name] = content;
}

/// A file in the place of a month's folder or a folder in that of a log: where those leave no name, no file is open.
bool isObstacle(const std::string& name) {
    return name == "2026_03" || name == "2026_04" || name.find(".log/") != name.npos;
}

void takeFiles(Input& input, MemoryFiles& disk, LogModel& model) {
    int large = 0;
    for (std::size_t count = 0; !input.empty() && count < kMaxFiles; ++count) {
        const std::string content = takeContent(input, model.settings.zip, large);
        const std::string name = modelPath(oracle::text(input.takeLine()));
        const bool isPossible = !name.empty() && name.size() <= kMaxName && name.find('\0') == name.npos;
        if (isPossible && !isObstacle(name)) {
            put(disk, model, name, content);
        }
    }
}

/// More old files than a history keeps, each with a day of its own.
void putMany(MemoryFiles& disk, LogModel& model) {
    for (int day = 511; day > 0; --day) {
        const int date = (1900 + day / 336) * 1000000 + (day / 28 % 12 + 1) * 10000 + (day % 28 + 1) * 100;
        put(disk, model, "sonvia_Test_" + std::to_string(date) + ".log", "o");
    }
}

/// The text of the version file; nothing when there is none.
std::optional<std::string> takeVersion(Input& input, bool& many) {
    constexpr unsigned kMany = 31;
    const unsigned low = input.takeByte();
    const unsigned form = input.takeByte();
    many = form >> 3 == kMany;
    if ((form & 4u) != 0) {
        return std::nullopt;
    }
    return oracle::text(input.take((form & 3u) * 256 + low));
}

/// The version that the logger is given. It may be that of the file, or begin like that.
std::string ownVersion(unsigned flags, const std::string& stored) {
    const std::string fixed = (flags & 64u) != 0 ? "2.1" : "";
    return (flags & 128u) != 0 ? stored + fixed : fixed;
}

ModelSettings settingsFrom(unsigned flags) {
    ModelSettings set;
    set.zip = (flags & 1u) != 0;
    set.monthdir = (flags & 2u) != 0;
    set.type = static_cast<int>(flags >> 2 & 3u);
    set.reserve = (flags & 16u) != 0 ? 30 * 86400 : 0;
    set.limitMb = 1;
    set.totalMb = (flags & 32u) != 0 ? kNoLimit : 2;
    return set;
}

void give(LoggerSlot& slot, const ModelSettings& set) {
    slot.settings.enable = true;
    slot.settings.name = set.name;
    slot.settings.path = set.path;
    slot.settings.isZip = set.zip;
    slot.settings.monthdir = set.monthdir;
    slot.settings.reserveDelType = static_cast<ReserveDelType>(set.type);
    slot.settings.reserveSeconds = set.reserve;
    slot.settings.limitSizeMb = set.limitMb;
    slot.settings.totalSizeMb = set.totalMb;
    slot.settings.version = set.version;
}

void choose(Input& input, LoggerSlot& slot, MemoryFiles& disk, LogModel& model) {
    const unsigned flags = input.takeByte();
    bool many = false;
    const std::optional<std::string> stored = takeVersion(input, many);
    model.settings = settingsFrom(flags);
    model.settings.version = ownVersion(flags, stored.value_or(""));
    give(slot, model.settings);
    takeFiles(input, disk, model);
    if (many) {
        putMany(disk, model);
    }
    if (stored) {
        put(disk, model, "sonvia_version", *stored);
    }
}

void requireSameFiles(const MemoryFiles& disk, const LogModel& model) {
    require(model.wrong.empty(), "each archive holds its log");
    const std::vector<std::string> paths = disk.paths();
    require(paths.size() == model.files.size(), "as many files");
    std::size_t at = 0;
    for (const auto& [path, content] : model.files) {
        require(paths[at++] == path, "the same files");
        require(disk.content(path) == content, "the same content");
    }
}

void requireSameHistory(const LoggerSlot& slot, const LogModel& model) {
    require(slot.file.history().count() == model.history.size(), "as many in the history");
    require(slot.file.history().writeLength() == model.historyBytes(), "the same total");
    if (!model.history.empty()) {
        require(modelPath(slot.file.history().oldest().path) == model.history.front().path,
                "the same oldest");
        require(slot.file.history().oldest().time == model.history.front().time, "its time");
        require(modelPath(slot.file.history().newest().path) == model.history.back().path, "the same newest");
        require(slot.file.history().newest().time == model.history.back().time, "its time");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    FakeClock clock;
    clock.set(kStart);
    MemoryFiles disk;
    PackedArchives packed(disk);
    RecordingConsole screen;
    ConsoleEcho console(screen);
    LoggerSlot slot({clock, packed, console});
    LogModel model(packed);
    choose(input, slot, disk, model);
    slot.file.loadHistory(0);
    model.load(kStart);
    requireSameFiles(disk, model);
    requireSameHistory(slot, model);
    constexpr std::int64_t kSteps[] = {0, 0, 1, 86400, 0, -86400, 40 * 86400};
    for (const std::int64_t step : kSteps) {
        clock.advance(step);
        const std::int64_t now = clock.now().seconds;
        require(slot.file.openFor(now), "a file is open");
        slot.file.write("one line\r\n", 10);
        slot.file.close(); // as after a changed setting
        model.line(kLevelFatal, "one line\r\n", now, now);
        model.close();
        requireSameHistory(slot, model);
    }
    requireSameFiles(disk, model);
    slot.file.loadHistory(0);
    model.load(clock.now().seconds);
    requireSameHistory(slot, model);
    requireSameFiles(disk, model);
    require(packed.empty(), "no other archive was made");
    return 0;
}
