// Byte 0 of an input chooses how the texts reach an engine: as texts (even) or as a file that is read and later read
// again (odd). The rest is one or more configuration texts, with a byte 0xFF between them. A plain second reader must
// agree on every logger's settings, on what is reported and on whether each text counts as applied.

#include "oracle/log_config.h"
#include "log/manager.h"
#include "support/input.h"
#include "support/log/fake_clock.h"
#include "support/log/memory_files.h"
#include "support/log/recording_console.h"
#include "support/require.h"

#include <algorithm>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

constexpr char kFile[] = "conf/log.txt";

void requireSame(const LoggerSlot& slot, const oracle::LoggerSettings& expected) {
    const LoggerSettings& settings = slot.settings;
    require(slot.key == expected.key && settings.name == expected.name && settings.path == expected.path,
            "texts");
    require(settings.level == expected.level, "level");
    require(settings.display == expected.display && settings.outfile == expected.outfile &&
                settings.monthdir == expected.monthdir && settings.fileline == expected.fileline &&
                settings.enable == expected.enable,
            "flags");
    require(settings.limitSizeMb == expected.limitMb && settings.reserveSeconds == expected.reserve,
            "numbers");
    require(settings.totalSizeMb == 5 && !settings.isZip && settings.version.empty() &&
                settings.reserveDelType == kReserveBySizeOrTime,
            "what no text can set");
}

/// Of a message with a zero byte only the beginning is shown.
void requireSameMessages(RecordingConsole& console, const std::vector<std::string>& expected) {
    const auto shown = console.coloured();
    require(shown.size() == expected.size(), "as many messages");
    for (std::size_t i = 0; i < shown.size(); ++i) {
        require(shown[i].text.starts_with(expected[i]), "messages");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const bool asFile = input.takeByte() % 2 == 1;
    const oracle::Bytes bytes = input.rest();
    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host.exe"});
    oracle::ConfiguredLoggers expected;
    bool isFirst = true;
    for (auto begin = bytes.begin();; isFirst = false) {
        const auto end = std::find(begin, bytes.end(), std::uint8_t{0xFF});
        std::string text(begin, end);
        if (asFile) {
            files.put(kFile, text);
            const bool applied = isFirst ? manager.config(kFile) : manager.updateConfig();
            require(applied == expected.apply(text), "the file is applied");
        } else {
            text = text.c_str();
            require(manager.configFromText(text.c_str()) == expected.apply(text), "the text is applied");
        }
        if (end == bytes.end()) {
            break;
        }
        begin = end + 1;
    }
    std::uint32_t enabled = 0;
    for (std::size_t id = 0; id < expected.loggers.size(); ++id) {
        requireSame(manager.slot(static_cast<int>(id)), expected.loggers[id]);
        enabled += expected.loggers[id].enable ? 1 : 0;
    }
    require(manager.activeLoggerCount() == enabled, "no logger but these");
    requireSameMessages(console, expected.messages);
    return 0;
}
