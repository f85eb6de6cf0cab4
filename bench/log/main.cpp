// The log's speed compared with other loggers, in one run: lines a second, a caller's cost, processor time, archives, opening
// a file. Whatever was written is counted before a speed is shown. Ends with 1 when a bound is missed and with 2 when
// a result is wrong.

#include "log/write_log.h"
#include "subjects.h"
#include "support/results.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <thread>
#include <vector>

#ifdef SONVIA_BENCH_FILES
void registerFileBenchmarks();
#endif

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kLines = 400000;
constexpr int kBurst = 1000;
constexpr int kBursts = 40;

double secondsSince(SteadyClock::time_point start) {
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

double processorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

template <typename Body>
void onThreads(int threads, Body body) {
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread) {
        running.emplace_back(body, thread);
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

/// Lines as fast as they go, and the time until the last one is in its file.
void sustained(benchmark::State& state, SubjectFactory make, Line line, int threads) {
    for (auto _ : state) {
        const std::string folder = freshFolder();
        auto subject = make(folder);
        const double cpu = processorSeconds();
        const auto start = SteadyClock::now();
        onThreads(threads, [&](int) {
            for (int i = 0; i < kLines / threads; ++i) {
                subject->write(line, i);
            }
        });
        subject->drain();
        const double taken = secondsSince(start);
        state.SetIterationTime(taken);
        state.counters["lines_per_s"] = kLines / taken;
        state.counters["cpu_ns"] = (processorSeconds() - cpu) * 1e9 / kLines;
        subject.reset();
        if (countLines(folder) != kLines + planted()) {
            state.SkipWithError("lines are missing");
        }
        std::filesystem::remove_all(folder);
    }
}

/// A thousandth of the sorted costs.
void keepDistribution(const char* name, const std::vector<float>& nanoseconds) {
    std::vector<double> seconds;
    for (std::size_t i = 0; i < nanoseconds.size(); i += 1000) {
        seconds.push_back(static_cast<double>(nanoseconds[i]) * 1e-9);
    }
    writeSamples(std::string("caller_") + name, seconds);
}

/// What a line costs its caller, in bursts between which the logger comes to rest.
void callersCost(benchmark::State& state, SubjectFactory make, Line line, int threads, const char* name) {
    for (auto _ : state) {
        const std::string folder = freshFolder();
        auto subject = make(folder);
        std::vector<std::vector<float>> single(static_cast<std::size_t>(threads));
        std::vector<double> bursts;
        for (int burst = 0; burst < kBursts; ++burst) {
            onThreads(threads, [&](int thread) {
                auto& costs = single[static_cast<std::size_t>(thread)];
                const auto start = SteadyClock::now();
                auto before = start;
                for (int i = 0; i < kBurst; ++i) {
                    subject->write(line, i);
                    if (threads > 1) {
                        const auto after = SteadyClock::now();
                        costs.push_back(std::chrono::duration<float, std::nano>(after - before).count());
                        before = after;
                    }
                }
                if (threads == 1) {
                    bursts.push_back(secondsSince(start) * 1e9 / kBurst);
                }
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        double cost = 0;
        if (threads == 1) {
            std::sort(bursts.begin(), bursts.end());
            cost = bursts[bursts.size() / 2];
        } else {
            std::vector<float> all;
            for (const auto& costs : single) {
                all.insert(all.end(), costs.begin(), costs.end());
            }
            std::sort(all.begin(), all.end());
            cost = static_cast<double>(all[all.size() * 999 / 1000]);
            if (line == Line::Short) {
                keepDistribution(name, all);
            }
        }
        state.SetIterationTime(cost * 1e-9);
        subject->drain();
        subject.reset();
        if (countLines(folder) !=
            std::uint64_t{kBursts} * kBurst * static_cast<unsigned>(threads) + planted()) {
            state.SkipWithError("lines are missing");
        }
        std::filesystem::remove_all(folder);
    }
}

void formatFloor(benchmark::State& state, Line line) {
    char text[4096];
    int number = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(formatWholeLine(text, sizeof text, line, number++));
        benchmark::ClobberMemory();
    }
}

/// Formatting and fwrite on one thread, into one file.
void writeFloor(benchmark::State& state, Line line, bool format) {
    for (auto _ : state) {
        const std::string folder = freshFolder();
        std::FILE* file = std::fopen((folder + "/floor.log").c_str(), "wb");
        char text[4096];
        int length = formatWholeLine(text, sizeof text, line, 0);
        const double cpu = processorSeconds();
        const auto start = SteadyClock::now();
        for (int i = 0; i < kLines; ++i) {
            length = format ? formatWholeLine(text, sizeof text, line, i) : length;
            std::fwrite(text, 1, static_cast<std::size_t>(length), file);
        }
        std::fclose(file);
        const double taken = secondsSince(start);
        state.SetIterationTime(taken);
        state.counters["lines_per_s"] = kLines / taken;
        state.counters["cpu_ns"] = (processorSeconds() - cpu) * 1e9 / kLines;
        if (countLines(folder) != kLines + planted()) {
            state.SkipWithError("lines are missing");
        }
        std::filesystem::remove_all(folder);
    }
}

void belowThreshold(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) {
        writeLog(-1, kTag, kShortFormat, kFunction, 395, number++);
    }
}

struct Peer {
    const char* name;
    SubjectFactory make;
};

constexpr Peer kSubjects[] = {
    {"ours", makeOurs},
    {"spdlog_async", makeSpdlogAsync},
    {"spdlog_sync", makeSpdlogSync},
#ifdef SONVIA_BENCH_GLOG
    {"glog", makeGlog},
#endif
};

void registerAll() {
    for (const Line line : {Line::Short, Line::Long}) {
        const std::string kind = line == Line::Short ? "short" : "long";
        for (const Peer& peer : kSubjects) {
            for (const int threads : {1, 2, 4, 8}) {
                const std::string name = kind + "/" + std::to_string(threads) + "/" + peer.name;
                const bool isForThePlot = threads == 2 || threads == 8;
                if (isForThePlot && line == Line::Long) {
                    continue;
                }
                benchmark::RegisterBenchmark(("sustained/" + name).c_str(), sustained, peer.make, line,
                                             threads)
                    ->UseManualTime()
                    ->Iterations(1);
                if (isForThePlot) {
                    continue;
                }
                benchmark::RegisterBenchmark(("caller/" + name).c_str(), callersCost, peer.make, line,
                                             threads, peer.name)
                    ->UseManualTime()
                    ->Iterations(1);
            }
        }
        benchmark::RegisterBenchmark(("format/" + kind).c_str(), formatFloor, line);
        for (const bool format : {false, true}) {
            benchmark::RegisterBenchmark(((format ? "format_fwrite/" : "fwrite/") + kind).c_str(), writeFloor,
                                         line, format)
                ->UseManualTime()
                ->Iterations(1);
        }
    }
    benchmark::RegisterBenchmark("below_threshold", belowThreshold);
#ifdef SONVIA_BENCH_FILES
    registerFileBenchmarks();
#endif
}

std::vector<Target> targets() {
#ifdef _WIN32
    return {
        {"lines/s, short, 1 producer", "sustained/short/1/ours", "sustained/short/1/spdlog_async",
         "lines_per_s", 3, true},
        {"lines/s, long, 1 producer", "sustained/long/1/ours", "sustained/long/1/spdlog_async", "lines_per_s",
         3, true},
        {"lines/s, short, 4 producers", "sustained/short/4/ours", "sustained/short/4/spdlog_async",
         "lines_per_s", 3, true},
        {"ns below the threshold", "below_threshold", "-", "cpu", 2, false, true},
    };
#else
    return {
        {"lines/s, short, 1 producer", "sustained/short/1/ours", "sustained/short/1/spdlog_async",
         "lines_per_s", 2.5, true},
        {"lines/s, long, 1 producer", "sustained/long/1/ours", "sustained/long/1/spdlog_async", "lines_per_s",
         1.6, true},
        {"lines/s, short, 4 producers", "sustained/short/4/ours", "sustained/short/4/spdlog_sync",
         "lines_per_s", 1.25, true},
        {"lines/s, long, 4 producers", "sustained/long/4/ours", "sustained/long/4/spdlog_sync", "lines_per_s",
         1.25, true},
        {"caller's ns, short", "caller/short/1/ours", "caller/short/1/spdlog_async", "", 0.75, false},
        {"caller's ns, long", "caller/long/1/ours", "caller/long/1/spdlog_async", "", 0.9, false},
        {"caller's ns, short", "caller/short/1/ours", "format/short", "", 1.3, false},
        {"caller's ns, long", "caller/long/1/ours", "format/long", "", 1.3, false},
        {"caller's 99.9th percentile, short, 4", "caller/short/4/ours", "caller/short/4/spdlog_async", "",
         0.5, false},
        {"caller's 99.9th percentile, long, 4", "caller/long/4/ours", "caller/long/4/spdlog_async", "", 0.5,
         false},
        {"processor ns a line, short", "sustained/short/1/ours", "format_fwrite/short", "cpu_ns", 1.6, false},
        {"processor ns a line, long", "sustained/long/1/ours", "format_fwrite/long", "cpu_ns", 1.6, false},
        {"ns below the threshold", "below_threshold", "-", "cpu", 2, false, true},
        {"archiving 2 MB, bytes/s", "archive/ours", "archive/minizip_6", "bytes_per_s", 1.3, true},
        {"archiving 2 MB, log size by archive size", "archive/ours", "archive/minizip_6", "packed", 1.0,
         true},
        {"opening with 500 old files", "open/500", "open/5", "cpu", 1.5, false},
    };
#endif
}

} // namespace

int main(int argc, char** argv) {
    registerAll();
    return runInTurns(argc, argv, targets());
}
