// What a handle's life costs apart from its waits: initSonviaAudioService beyond its 200 ms and the ending of
// old services, the first setParam until it is connected, uninitSonviaAudioService beyond the service's end. And
// the memory of it: the log's first lines, a thousand events.

#include "api/service_process.h"
#include "connection.h"
#include "log/write_log.h"
#include "packets.h"
#include "private_bytes.h"
#include "support/results.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kPipeOpenTime = 0.2;
constexpr int kEvents = 1000;
constexpr int kLines = 1000;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::atomic<int> gEvents{0};

void onEvent(int, int) {
    gEvents.fetch_add(1);
}

void noBytes(const char*, std::size_t) {}

/// Must come first in the process: logging starts once.
void initialise(benchmark::State& state) {
    const std::string folder = std::filesystem::current_path().string();
    for (auto _ : state) {
        auto start = Clock::now();
        api::endEveryService();
        const double kill = secondsSince(start);
        start = Clock::now();
        AudioServiceHandle* const handle = initSonviaAudioService(folder.c_str(), kLogInfo);
        state.SetIterationTime(secondsSince(start) - kPipeOpenTime - kill);
        state.counters["kill_ns"] = kill * 1e9;
        if ((handle == nullptr) != (planted() != 0)) {
            state.SkipWithError("no handle");
        }
        uninitSonviaAudioService(handle);
    }
}

/// The whole life with a running service that never ends by itself: no process is waited for.
void connectAndRelease(benchmark::State& state, bool timesRelease) {
    for (auto _ : state) {
        const std::string prefix = freshPipePrefix();
        PipeEnd service(PipeEnd::Role::Service, servicePipe(prefix), noBytes);
        AudioServiceHandle* made = nullptr;
        AudioServiceHandle* const handle = makeHandle(prefix, made);
        const AudioServiceParam record = hostRecord(onEvent);
        auto start = Clock::now();
        setParam(handle, &record);
        while (made->session->connection() != Connection::Connected) {
            std::this_thread::yield();
        }
        const double connected = secondsSince(start);
        start = Clock::now();
        const std::weak_ptr<OUVLoop> loop = made->loop;
        uninitSonviaAudioService(handle);
        state.SetIterationTime(timesRelease ? secondsSince(start) : connected);
        if (loop.expired() == (planted() != 0)) {
            state.SkipWithError("not released");
        }
    }
}

/// A thread, a loop and a connection by libuv alone, and their end.
void libuvConnectAndRelease(benchmark::State& state, bool timesRelease) {
    for (auto _ : state) {
        const std::string name = servicePipe(freshPipePrefix());
        PipeEnd service(PipeEnd::Role::Service, name, noBytes);
        auto start = Clock::now();
        auto client = std::make_unique<PipeEnd>(PipeEnd::Role::Client, name, noBytes);
        const double connected = secondsSince(start);
        start = Clock::now();
        client.reset();
        state.SetIterationTime(timesRelease ? secondsSince(start) : connected);
    }
}

/// Private memory in bytes: before the log is touched, after a thousand of its lines, after a thousand events.
void memory(benchmark::State& state) {
    for (auto _ : state) {
        const auto before = privateBytes();
        startLog();
        writeLog(kLogInfo, kLogTagDefault, "[%s:%d]first line", "memory", __LINE__);
        const auto first = privateBytes();
        for (int i = 0; i < kLines; ++i) {
            writeLog(kLogInfo, kLogTagDefault, "[%s:%d]line %d", "memory", __LINE__, i);
        }
        const auto lines = privateBytes();
        LibraryConnection connection(onEvent, noBytes);
        const auto connected = privateBytes();
        gEvents = 0;
        connection.service().post([&connection] {
            for (int i = 0; i < kEvents; ++i) {
                connection.service().write(numberPacket(1, "change-mode", 1));
            }
        });
        const int expected = kEvents - static_cast<int>(planted());
        for (const auto end = Clock::now() + std::chrono::seconds(2);
             gEvents < kEvents && Clock::now() < end;) {
            std::this_thread::yield();
        }
        if (gEvents != expected) {
            state.SkipWithError("events are missing");
        }
        state.SetIterationTime(1e-9);
        state.counters["first_line"] = static_cast<double>(first - before);
        state.counters["lines"] = static_cast<double>(lines - first);
        state.counters["connection"] = static_cast<double>(connected - lines);
        state.counters["events"] = static_cast<double>(privateBytes() - connected);
    }
}

void add(const char* name, auto run, auto... arguments) {
    benchmark::RegisterBenchmark(name, run, arguments...)->UseManualTime()->Iterations(1);
}

std::vector<Target> targets() {
    return {
        {"init beyond 200 ms and kill, ns", "init/ours", "-", "", kNoBound, false, true},
        {"setParam to connected, ns", "connect/ours", "connect/libuv", "", kNoBound, false},
        {"uninit beyond the service's end, ns", "release/ours", "release/libuv", "", kNoBound, false},
        {"bytes, first line of the log", "memory/ours", "-", "first_line", kNoBound, false, true},
        {"bytes, 1000 lines more", "memory/ours", "-", "lines", kNoBound, false, true},
        {"bytes, a connection", "memory/ours", "-", "connection", kNoBound, false, true},
        {"bytes, 1000 events", "memory/ours", "-", "events", kNoBound, false, true},
    };
}

} // namespace

int main(int argc, char** argv) {
    add("init/ours", initialise);
    add("connect/ours", connectAndRelease, false);
    add("connect/libuv", libuvConnectAndRelease, false);
    add("release/ours", connectAndRelease, true);
    add("release/libuv", libuvConnectAndRelease, true);
    add("memory/ours", memory);
    return runInTurns(argc, argv, targets());
}
