#include "connection.h"
#include "packets.h"
#include "pipe_benchmarks.h"
#include "support/results.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kKey = "change-mode";
constexpr int kLatencies = 3000;
constexpr int kBursts = 500;
constexpr int kBurst = 64;

/// One event, or one burst, after the other: the next is sent when the callback of the last has reported.
struct Exchange {
    PipeEnd* service = nullptr;
    int burst = 1;
    int rounds = 0;
    int nextSent = 0; ///< service's thread
    Clock::time_point sent;
    int nextExpected = 0; ///< client's thread
    int missing = 0;
    bool isWrong = false;
    std::vector<double> latencies; ///< seconds; service's thread
    std::promise<void> done;
};

Exchange* gExchange = nullptr;

void sendNext(Exchange& exchange) {
    if (exchange.rounds-- == 0) {
        exchange.done.set_value();
        return;
    }
    std::string bytes;
    for (int i = 0; i < exchange.burst; ++i) {
        const int value = exchange.nextSent++;
        bytes += numberPacket(1, kKey, static_cast<std::uint32_t>(value) + planted());
    }
    exchange.sent = Clock::now();
    exchange.service->write(std::move(bytes));
}

void onEvent(int event, int value) {
    Exchange& exchange = *gExchange;
    exchange.isWrong =
        exchange.isWrong || event != SONVIA_EVENT_MODE_CHANGED || value != exchange.nextExpected;
    ++exchange.nextExpected;
    if (--exchange.missing > 0) {
        return;
    }
    exchange.missing = exchange.burst;
    exchange.service->post([&exchange, arrived = Clock::now()] {
        exchange.latencies.push_back(std::chrono::duration<double>(arrived - exchange.sent).count());
        sendNext(exchange);
    });
}

/// libuv alone in the library's place.
struct BareClient {
    std::unique_ptr<PipeEnd> service;
    std::unique_ptr<BareCut> cut;
    std::unique_ptr<PipeEnd> client;
};

BareClient makeBareClient() {
    const std::string name = servicePipe(freshPipePrefix());
    BareClient made;
    made.service = std::make_unique<PipeEnd>(PipeEnd::Role::Service, name, [](const char*, std::size_t) {});
    made.cut = std::make_unique<BareCut>(
        [](void*, const char* packet, std::size_t) {
            onEvent(SONVIA_EVENT_MODE_CHANGED, static_cast<int>(readNumber(packet + valueOffset(kKey), 4)));
        },
        nullptr);
    made.client = std::make_unique<PipeEnd>(
        PipeEnd::Role::Client, name,
        [cut = made.cut.get()](const char* bytes, std::size_t size) { cut->feed(bytes, size); });
    made.service->waitForConnection();
    return made;
}

void exchangeAll(benchmark::State& state, const char* who, PipeEnd& service, int burst, int rounds) {
    Exchange exchange;
    exchange.service = &service;
    exchange.burst = exchange.missing = burst;
    exchange.rounds = rounds;
    exchange.latencies.reserve(static_cast<std::size_t>(rounds));
    gExchange = &exchange;
    service.post([&exchange] { sendNext(exchange); });
    exchange.done.get_future().wait();
    if (exchange.isWrong || exchange.nextExpected != burst * rounds) {
        state.SkipWithError("an event is missing or wrong");
    }
    std::vector<double>& all = exchange.latencies;
    std::sort(all.begin(), all.end());
    const double median = all[all.size() / 2];
    state.SetIterationTime(median);
    state.counters["p99_ns"] = all[all.size() * 99 / 100] * 1e9;
    state.counters["events_per_s"] = burst / median;
    writeSamples((burst == 1 ? "latency_" : "burst_") + std::string(who), all);
}

void oursEvents(benchmark::State& state, int burst, int rounds) {
    LibraryConnection connection(onEvent, [](const char*, std::size_t) {});
    for (auto _ : state) {
        exchangeAll(state, "ours", connection.service(), burst, rounds);
    }
}

void bareEvents(benchmark::State& state, int burst, int rounds) {
    const BareClient bare = makeBareClient();
    for (auto _ : state) {
        exchangeAll(state, "libuv", *bare.service, burst, rounds);
    }
}

void registerOne(const char* name, void (*run)(benchmark::State&, int, int), int burst, int rounds) {
    benchmark::RegisterBenchmark(name, run, burst, rounds)->UseManualTime()->Iterations(1);
}

} // namespace

void registerPipeEvents() {
    registerOne("pipe_event/ours", oursEvents, 1, kLatencies);
    registerOne("pipe_event/libuv", bareEvents, 1, kLatencies);
    registerOne("pipe_burst/ours", oursEvents, kBurst, kBursts);
    registerOne("pipe_burst/libuv", bareEvents, kBurst, kBursts);
}
