#include "connection.h"
#include "packets.h"
#include "pipe_benchmarks.h"
#include "support/results.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kAccount = "100000000000042";
constexpr int kSeries = 100; ///< sends in a row
constexpr int kRounds = 40;
constexpr int kThreadCalls = 8000; ///< of all threads together

enum class Call { Account, Exit };

std::string packetFor(Call call) {
    return call == Call::Account ? textPacket(0, "accountID", kAccount)
                                 : numberPacket(0, "exitAudioProjection", 200005);
}

/// What the service gets: packets of one content, numbered without a gap.
class Receipt {
public:
    explicit Receipt(std::string expected)
        : mExpected(std::move(expected)), mCut(
                                              [](void* self, const char* packet, std::size_t size) {
                                                  static_cast<Receipt*>(self)->take({packet, size});
                                              },
                                              this) {}

    PipeEnd::Received reader() {
        return [this](const char* bytes, std::size_t size) {
            const std::lock_guard guard(mMutex);
            mCut.feed(bytes, size);
            mChanged.notify_all();
        };
    }

    void waitFor(std::size_t packets) {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [&] { return mPackets >= packets; });
    }

    bool isWrong() {
        const std::lock_guard guard(mMutex);
        return mIsWrong;
    }

private:
    void take(std::string_view packet) {
        constexpr std::size_t kSequence = 3;
        if (packet.find("KORUInfo") != std::string_view::npos) { // a connection's first
            return;
        }
        const std::uint32_t number = readNumber(packet.data() + kSequence, 2);
        std::string same(packet);
        same[kSequence] = same[kSequence + 1] = 0;
        const bool follows = mPackets == 0 || !mIsNumbered || number == ((mLast + 1) & 0xFFFF);
        mIsWrong = mIsWrong || same != mExpected || !follows;
        mLast = number + planted();
        ++mPackets;
    }

public:
    bool mIsNumbered = true; ///< false for a peer that gives all of them one number

private:
    std::string mExpected;
    BareCut mCut;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::size_t mPackets = 0;
    std::uint32_t mLast = 0;
    bool mIsWrong = false;
};

class Sender {
public:
    virtual ~Sender() = default;
    virtual void send() = 0;
};

class Ours final : public Sender {
public:
    Ours(Call call, Receipt& receipt) : mCall(call), mConnection([](int, int) {}, receipt.reader()) {}

    void send() override {
        if (mCall == Call::Account) {
            setAccountID(mConnection.handle(), kAccount);
        } else {
            exitAudioProjection(mConnection.handle());
        }
    }

private:
    Call mCall;
    LibraryConnection mConnection;
};

class Libuv final : public Sender {
public:
    Libuv(Call call, Receipt& receipt, bool awaits)
        : mBytes(packetFor(call)), mAwaits(awaits), mName(servicePipe(freshPipePrefix())),
          mService(PipeEnd::Role::Service, mName, receipt.reader()),
          mClient(PipeEnd::Role::Client, mName, [](const char*, std::size_t) {}) {
        receipt.mIsNumbered = false;
    }

    void send() override {
        auto write = [this, bytes = mBytes]() mutable { mClient.write(std::move(bytes)); };
        if (mAwaits) {
            mClient.postAndWait(std::move(write));
        } else {
            mClient.post(std::move(write));
        }
    }

private:
    std::string mBytes;
    bool mAwaits;
    std::string mName;
    PipeEnd mService;
    PipeEnd mClient;
};

enum class Who { Ours, Awaited, Posted };

std::unique_ptr<Sender> makeSender(Who who, Call call, Receipt& receipt) {
    if (who == Who::Ours) {
        return std::make_unique<Ours>(call, receipt);
    }
    return std::make_unique<Libuv>(call, receipt, who == Who::Awaited);
}

double median(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void checkReceipt(benchmark::State& state, Receipt& receipt) {
    if (receipt.isWrong()) {
        state.SkipWithError("a packet is missing or wrong");
    }
}

/// A hundred calls in a row: until the last one has returned, and until the service has them all.
void sends(benchmark::State& state, Who who, Call call, double perCall) {
    Receipt receipt(packetFor(call));
    const auto sender = makeSender(who, call, receipt);
    for (auto _ : state) {
        std::vector<double> returned;
        std::vector<double> received;
        for (std::size_t round = 1; round <= kRounds; ++round) {
            const auto start = Clock::now();
            for (int i = 0; i < kSeries; ++i) {
                sender->send();
            }
            returned.push_back(secondsSince(start));
            receipt.waitFor(round * kSeries);
            received.push_back(secondsSince(start));
        }
        state.SetIterationTime(median(returned) / perCall);
        state.counters["received_ns"] = median(received) * 1e9;
    }
    checkReceipt(state, receipt);
}

void threads(benchmark::State& state, Who who, int count) {
    Receipt receipt(packetFor(Call::Account));
    const auto sender = makeSender(who, Call::Account, receipt);
    for (auto _ : state) {
        std::vector<std::thread> running;
        const auto start = Clock::now();
        for (int thread = 0; thread < count; ++thread) {
            running.emplace_back([&] {
                for (int i = 0; i < kThreadCalls / count; ++i) {
                    sender->send();
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
        const double taken = secondsSince(start);
        state.SetIterationTime(taken);
        state.counters["calls_per_s"] = kThreadCalls / taken;
        receipt.waitFor(kThreadCalls);
    }
    checkReceipt(state, receipt);
}

} // namespace

void registerPipeSends() {
    constexpr struct {
        const char* name;
        Who who;
    } kSenders[] = {{"ours", Who::Ours}, {"awaited", Who::Awaited}, {"posted", Who::Posted}};

    const auto add = [](const std::string& name, auto run, auto... arguments) {
        benchmark::RegisterBenchmark(name.c_str(), run, arguments...)->UseManualTime()->Iterations(1);
    };
    for (const auto& [name, who] : kSenders) {
        add(std::string("sends/") + name, sends, who, Call::Account, 1.0);
        add(std::string("caller/account/") + name, sends, who, Call::Account, double{kSeries});
        add(std::string("caller/exit/") + name, sends, who, Call::Exit, double{kSeries});
        for (const int count : {2, 16}) {
            add("threads/" + std::to_string(count) + "/" + name, threads, who, count);
        }
    }
}
