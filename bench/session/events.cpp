// What an event costs from the received bytes to the host's callback, and what the calls cost that only read, without
// the pipe. The peer is the bare cut of the same packets with a call of the same function.

#include "allocations.h"
#include "connection.h"
#include "packets.h"
#include "support/results.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr int kBatch = 1000;
constexpr std::uint32_t kMode = 7;
constexpr std::string_view kWithoutValue = "buffering-start";
constexpr std::string_view kWithValue = "change-mode";

std::uint64_t gEvents = 0;
std::uint64_t gSum = 0;

/// noinline: a host's function is in another module.
[[gnu::noinline]] void onEvent(int event, int value) {
    ++gEvents;
    gSum += static_cast<std::uint64_t>(event + value);
}

/// The packets of a batch as the reads bring them: one block of bytes, `each` packets a read.
struct Batch {
    Batch(const std::string& packet, std::size_t each) {
        for (int i = 0; i < kBatch; ++i) {
            bytes += packet;
        }
        reads = kBatch / each;
        size = packet.size() * each;
        block = OBufView::make(bytes.data(), bytes.size());
    }

    std::vector<OBufList> lists() const {
        std::vector<OBufList> made(reads);
        for (std::size_t i = 0; i < reads; ++i) {
            OBufView view;
            block.slice(view, i * size, size);
            made[i].push_back(view);
        }
        return made;
    }

    std::string bytes;
    OBufView block;
    std::size_t reads = 0;
    std::size_t size = 0;
};

template <typename Body>
void onLoopThread(LibraryConnection& connection, Body body) {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    connection.record().loop->post([&] {
        body();
        const std::lock_guard guard(mutex);
        done = true;
        changed.notify_all();
    });
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return done; });
}

std::string packetFor(bool withValue, std::uint32_t mode) {
    return withValue ? numberPacket(1, kWithValue, mode) : numberPacket(1, kWithoutValue, 0);
}

void check(benchmark::State& state, bool withValue) {
    const std::uint64_t expected = static_cast<std::uint64_t>(state.iterations()) * kBatch + planted();
    std::uint64_t each = SONVIA_EVENT_BUFFERING_STARTED;
    if (withValue) {
        each = SONVIA_EVENT_MODE_CHANGED + kMode;
    }
    if (gEvents != expected || gSum != expected * each) {
        state.SkipWithError("an event is missing or wrong");
    }
}

void setTimeOf(benchmark::State& state) {
    state.counters["ns"] = benchmark::Counter(1e-9 * kBatch, benchmark::Counter::kIsIterationInvariantRate |
                                                                 benchmark::Counter::kInvert);
}

/// Processor time of the calling thread: what other programs do meanwhile does not count.
double threadSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Feed>
void timed(benchmark::State& state, Feed feed) {
    const double start = threadSeconds();
    feed();
    state.SetIterationTime(threadSeconds() - start);
}

void oursEvents(benchmark::State& state, bool withValue, std::size_t each) {
    LibraryConnection connection(onEvent, [](const char*, std::size_t) {});
    const Batch batch(packetFor(withValue, kMode), each);
    QuPCAudioMessage& session = *connection.record().session;
    gEvents = gSum = 0;
    std::uint64_t asked = 0;
    onLoopThread(connection, [&] {
        for (auto _ : state) {
            std::vector<OBufList> lists = batch.lists();
            const std::uint64_t before = allocations();
            timed(state, [&] {
                for (OBufList& list : lists) {
                    session.onRead(std::move(list), 0);
                }
            });
            asked += allocations() - before;
        }
    });
    state.counters["allocations"] =
        static_cast<double>(asked) / static_cast<double>(state.iterations() * kBatch);
    setTimeOf(state);
    check(state, withValue);
}

template <bool kHasValue>
void takeBare(void*, const char* packet, std::size_t) {
    if constexpr (kHasValue) {
        onEvent(SONVIA_EVENT_MODE_CHANGED, static_cast<int>(readNumber(packet + valueOffset(kWithValue), 4)));
    } else {
        onEvent(SONVIA_EVENT_BUFFERING_STARTED, 0);
    }
}

void bareEvents(benchmark::State& state, bool withValue, std::size_t each) {
    const Batch batch(packetFor(withValue, kMode), each);
    BareCut cut(withValue ? takeBare<true> : takeBare<false>, nullptr);
    gEvents = gSum = 0;
    for (auto _ : state) {
        timed(state, [&] {
            for (std::size_t i = 0; i < batch.reads; ++i) {
                cut.feed(batch.bytes.data() + i * batch.size, batch.size);
            }
        });
    }
    setTimeOf(state);
    check(state, withValue);
}

void stateCall(benchmark::State& state) {
    LibraryConnection connection(onEvent, [](const char*, std::size_t) {});
    std::uint32_t found = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(found = getState(connection.handle()));
    }
    if (found != SONVIA_STATE_UNKNOWN + planted()) {
        state.SkipWithError("a wrong state");
    }
}

void sourceNameCall(benchmark::State& state) {
    constexpr const char* kPhone = "Galaxy S23 of Anna";
    LibraryConnection connection(onEvent, [](const char*, std::size_t) {});
    const std::string bytes = textPacket(1, "phone-name", kPhone);
    onLoopThread(connection, [&] {
        connection.record().session->onRead({OBufView::make(bytes.data(), bytes.size())}, 0);
    });
    const char* found = nullptr;
    for (auto _ : state) {
        benchmark::DoNotOptimize(found = getSourceName(connection.handle()));
    }
    if (std::strcmp(found, kPhone) != static_cast<int>(planted())) {
        state.SkipWithError("a wrong name");
    }
}

void registerAll() {
    for (const bool withValue : {false, true}) {
        for (const std::size_t each : {1U, 50U}) {
            const std::string name =
                std::string(withValue ? "event_value/" : "event/") + std::to_string(each) + "/";
            benchmark::RegisterBenchmark((name + "ours").c_str(), oursEvents, withValue, each)
                ->UseManualTime();
            benchmark::RegisterBenchmark((name + "bare").c_str(), bareEvents, withValue, each)
                ->UseManualTime();
        }
    }
    benchmark::RegisterBenchmark("getState/ours", stateCall);
    benchmark::RegisterBenchmark("getSourceName/ours", sourceNameCall);
}

std::vector<Target> targets() {
    return {
        {"event, alone in its read", "event/1/ours", "event/1/bare", "ns", 5, false},
        {"event with a value, alone in its read", "event_value/1/ours", "event_value/1/bare", "ns", 8, false},
        {"event, 50 a read", "event/50/ours", "event/50/bare", "ns", 5, false},
        {"event with a value, 50 a read", "event_value/50/ours", "event_value/50/bare", "ns", 8, false},
        {"allocations an event", "event/1/ours", "-", "allocations", 0, false, true},
        {"allocations an event with a value", "event_value/1/ours", "-", "allocations", 0, false, true},
        {"ns of getState", "getState/ours", "-", "cpu", 3, false, true},
        {"ns of getSourceName", "getSourceName/ours", "-", "cpu", 15, false, true},
    };
}

} // namespace

int main(int argc, char** argv) {
    registerAll();
    return runInTurns(argc, argv, targets());
}
