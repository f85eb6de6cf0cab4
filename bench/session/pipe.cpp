// The library at a real pipe, with libuv alone in its place as the peer: events from the service's write to the host's
// callback, and the host's sends until the call has returned and until the service has them.

#include "pipe_benchmarks.h"
#include "support/results.h"

namespace {

#ifdef _WIN32
constexpr double kEventBound = 1.10;
constexpr double kBurstBound =
    kNoBound; // Wine's pipes are slow: libuv alone has a tenth of what it has natively
#else
constexpr double kEventBound = 1.15;
constexpr double kBurstBound = 5e6;
#endif

// Two peers for sends: "awaited" makes the library's promise that the bytes have been handed to libuv when the call
// returns; "posted" leaves them to the loop thread and returns.
std::vector<Target> targets() {
    return {
        {"event, write to callback, median", "pipe_event/ours", "pipe_event/libuv", "", kEventBound, false},
        {"events/s, 64 in a write", "pipe_burst/ours", "-", "events_per_s", kBurstBound, true, true},
        {"events/s, 64 in a write", "pipe_burst/ours", "pipe_burst/libuv", "events_per_s", kNoBound, true},
        {"caller's time, setAccountID", "caller/account/ours", "caller/account/awaited", "", 1.3, false},
        {"caller's time, exitAudioProjection", "caller/exit/ours", "caller/exit/awaited", "", 1.3, false},
        {"100 sends, last call returned", "sends/ours", "sends/awaited", "", 1.2, false},
        {"100 sends, all received", "sends/ours", "sends/awaited", "received_ns", 1.2, false},
        {"100 sends, last call returned", "sends/ours", "sends/posted", "", kNoBound, false},
        {"100 sends, all received", "sends/ours", "sends/posted", "received_ns", kNoBound, false},
        {"calls/s, 16 threads to 2", "threads/16/ours", "threads/2/ours", "calls_per_s", 0.7, true},
        {"calls/s, 16 threads", "threads/16/ours", "threads/16/awaited", "calls_per_s", kNoBound, true},
    };
}

} // namespace

int main(int argc, char** argv) {
    registerPipeEvents();
    registerPipeSends();
    return runInTurns(argc, argv, targets());
}
