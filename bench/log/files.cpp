// Archives compared with minizip's, and the cost of opening a file as its folder fills.

#include "log/archive.h"
#include "log/log_names.h"
#include "log/logger_slot.h"
#include "subjects.h"
#include "support/results.h"

#include <benchmark/benchmark.h>
#define MINIZ_NO_ZLIB_COMPATIBLE_NAMES // minizip brings the real ones
#include <miniz.h>
#include <minizip/zip.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace {

constexpr std::size_t kLogSize = 2 * 1024 * 1024;
constexpr char kMember[] = "sonvia_Sonvia_2026-11-21-10-00-00.log";

/// A log as the library writes it: some lines often, numbers that change.
std::string logText() {
    static constexpr const char* kMessages[] = {
        "Sonvia_PCAudioMessage: [QuPCAudioMessage::handlePlayerState:%u]Player state is %u.\r\n",
        "Sonvia_PCAudioMessage: [QuPCAudioMessage::handleBufferStart:%u]kKORUSinkInfoBufferingStart.\r\n",
        "Sonvia_PCAudioMessage: [QuPCAudioMessage::onConnect:%u]connect failed -%u\r\n",
        "SonviaPCAudioDll: [initSonviaAudioService:%u]begin logDir:C:\\logs logLevel:%u\r\n",
        "Sonvia_Default: [CtrlProtocol::DepackPacket:%u]cmdType:Notify size:%u decryptData failed\r\n",
    };
    std::mt19937 random(3);
    std::string text;
    unsigned ms = 0;
    while (text.size() < kLogSize) {
        ms += static_cast<unsigned>(random() % 700);
        char line[256];
        std::snprintf(line, sizeof line, "11-21 %02u:%02u:%02u.%03u [host] [%04u] INFO  ", ms / 3600000 % 24,
                      ms / 60000 % 60, ms / 1000 % 60, ms % 1000, 4711 + static_cast<unsigned>(random() % 3));
        text += line;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(line, sizeof line, kMessages[random() % 5], static_cast<unsigned>(random() % 400),
                      static_cast<unsigned>(random() % 100000));
#pragma GCC diagnostic pop
        text += line;
    }
    text.resize(kLogSize);
    return text;
}

bool minizipArchive(const std::string& log, const std::string& archive) {
    std::FILE* in = std::fopen(log.c_str(), "rb");
    zipFile zip = zipOpen(archive.c_str(), APPEND_STATUS_CREATE);
    zip_fileinfo info{};
    bool good =
        in != nullptr && zip != nullptr &&
        zipOpenNewFileInZip(zip, kMember, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, 6) == ZIP_OK;
    char piece[65536];
    for (std::size_t got = 1; good && got > 0;) {
        got = std::fread(piece, 1, sizeof piece, in);
        good = got == 0 || zipWriteInFileInZip(zip, piece, static_cast<unsigned>(got)) == ZIP_OK;
    }
    good = good && zipCloseFileInZip(zip) == ZIP_OK && zipClose(zip, nullptr) == ZIP_OK;
    if (in != nullptr) {
        std::fclose(in);
    }
    return good;
}

bool ourArchive(const std::string& log, const std::string& archive) {
    return orvel::log4z::writeArchive(platform::systemFiles(), log, archive, 1'772'000'000);
}

bool holds(const std::string& archive, const std::string& text) {
    mz_zip_archive zip;
    mz_zip_zero_struct(&zip);
    std::ifstream file(archive, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::string unpacked(text.size(), '\0');
    const bool same =
        mz_zip_reader_init_mem(&zip, bytes.data(), bytes.size(), 0) != MZ_FALSE &&
        mz_zip_reader_extract_to_mem(&zip, 0, unpacked.data(), unpacked.size(), 0) != MZ_FALSE &&
        unpacked == text && planted() == 0;
    mz_zip_reader_end(&zip);
    return same;
}

void archiving(benchmark::State& state, bool (*pack)(const std::string&, const std::string&)) {
    const std::string folder = freshFolder();
    const std::string log = folder + "/" + kMember;
    const std::string archive = log + ".zip";
    const std::string text = logText();
    std::ofstream(log, std::ios::binary) << text;
    for (auto _ : state) {
        if (!pack(log, archive)) {
            state.SkipWithError("no archive");
        }
    }
    if (!holds(archive, text)) {
        state.SkipWithError("the archive does not hold the log");
    }
    state.counters["packed"] =
        static_cast<double>(kLogSize) / static_cast<double>(std::filesystem::file_size(archive));
    state.counters["bytes_per_s"] =
        benchmark::Counter(static_cast<double>(kLogSize), benchmark::Counter::kIsIterationInvariantRate);
    std::filesystem::remove_all(folder);
}

/// Stands at a day until it is moved to the next.
class DayClock final : public platform::Clock {
public:
    explicit DayClock(std::int64_t start) : mNow(start) {}

    void nextDay() { mNow += platform::kSecondsPerDay; }

    platform::Moment now() override { return {mNow, 0}; }

    std::uint64_t steadyMilliseconds() override { return platform::systemClock().steadyMilliseconds(); }

    platform::CalendarTime toLocal(std::int64_t seconds) override { return mSystem.toLocal(seconds); }

    std::int64_t fromLocal(const platform::CalendarTime& local) override { return mSystem.fromLocal(local); }

    void sleep(unsigned) override {}

private:
    platform::Clock& mSystem = platform::systemClock();
    std::int64_t mNow;
};

class NoConsole final : public platform::Console {
public:
    bool printColoured(unsigned, const char*) override { return false; }

    void print(const char*) override {}
};

constexpr int kOpenings = 10;

/// A day's first line in a folder that holds so many old files. In memory where that is possible: a disk on which
/// thousands of files have just been deleted takes ten times as long for some new ones, and that would be all that is
/// measured.
void opening(benchmark::State& state, int oldFiles) {
    using namespace orvel::log4z;
    const std::string folder = freshFolder("/dev/shm");
    DayClock clock(1'772'000'000);
    NoConsole none;
    ConsoleEcho console(none);
    LoggerSlot slot({clock, platform::systemFiles(), console});
    slot.settings.name = "sonvia_Sonvia";
    slot.settings.path = folder + "/";
    slot.settings.reserveDelType = kReserveBySize;
    slot.settings.totalSizeMb = kNoLimit;
    const auto openNext = [&] {
        clock.nextDay();
        if (!slot.file.openFor(clock.now().seconds)) {
            state.SkipWithError("not opened");
        }
        slot.file.write("line\r\n", 6);
    };
    for (int i = 0; i < oldFiles; ++i) {
        openNext();
    }
    for (auto _ : state) {
        openNext();
    }
    if (slot.file.history().count() != static_cast<std::size_t>(oldFiles + kOpenings) + planted()) {
        state.SkipWithError("a file is missing");
    }
    slot.file.close();
    std::filesystem::remove_all(folder);
}

} // namespace

void registerFileBenchmarks() {
    benchmark::RegisterBenchmark("archive/ours", archiving, ourArchive);
    benchmark::RegisterBenchmark("archive/minizip_6", archiving, minizipArchive);
    for (const int oldFiles : {5, 490}) {
        benchmark::RegisterBenchmark(oldFiles < 100 ? "open/5" : "open/500", opening, oldFiles)
            ->Iterations(kOpenings);
    }
}
