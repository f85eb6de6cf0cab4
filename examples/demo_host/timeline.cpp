#include "timeline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <windows.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kGuard = 30s;
constexpr std::size_t kMostPrinted = 50; // events, of a flood

std::int64_t now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

const char* nameOf(int event) {
    switch (event) {
    case SONVIA_EVENT_BUFFERING_STARTED:
        return "buffering started";
    case SONVIA_EVENT_BUFFERING_ENDED:
        return "buffering ended";
    case SONVIA_EVENT_FIRST_AUDIO:
        return "first audio";
    case SONVIA_EVENT_MODE_CHANGED:
        return "mode changed";
    default:
        return "?";
    }
}

} // namespace

Timeline& Timeline::instance() {
    static Timeline timeline;
    return timeline;
}

void Timeline::call(const std::string& text) {
    const std::lock_guard guard(mMutex);
    mMarks.push_back({now(), Lane::Call, text, text});
    print("call ", mMarks.back());
}

void Timeline::heading(const std::string& text) {
    const std::lock_guard guard(mMutex);
    std::printf("\n%s\n\n", text.c_str());
    std::fflush(stdout);
}

void Timeline::onEvent(int event, int value) {
    instance().add("event", "onEvent", nameOf(event), {event, value});
}

void Timeline::onError(int code, int value) {
    instance().add("error", "onError", "", {code, value});
}

bool Timeline::waitForEvent(int event, int value) {
    std::unique_lock guard(mMutex);
    return mChanged.wait_for(guard, kGuard, [&] {
        return std::any_of(mEvents.begin(), mEvents.end(),
                           [&](const Event& seen) { return seen.code == event && seen.value == value; });
    });
}

bool Timeline::waitForMoreThan(std::size_t count) {
    std::unique_lock guard(mMutex);
    return mChanged.wait_for(guard, kGuard, [&] { return mEvents.size() > count; });
}

std::size_t Timeline::count() {
    const std::lock_guard guard(mMutex);
    return mEvents.size();
}

bool Timeline::lastWas(int code, int value) {
    const std::lock_guard guard(mMutex);
    return !mEvents.empty() && mEvents.back().code == code && mEvents.back().value == value;
}

void Timeline::waitForQuiet(std::chrono::milliseconds time) {
    std::unique_lock guard(mMutex);
    const auto end = std::chrono::steady_clock::now() + kGuard;
    std::size_t before = 0;
    do {
        before = mEvents.size();
    } while (mChanged.wait_for(guard, time, [&] { return mEvents.size() != before; }) &&
             std::chrono::steady_clock::now() < end);
}

std::vector<Mark> Timeline::marks() {
    const std::lock_guard guard(mMutex);
    return mMarks;
}

void Timeline::print(const char* lane, const Mark& mark) {
    std::printf("%7.3f s  thread %04lx  %s  %s\n", static_cast<double>(mark.at - mMarks.front().at) / 1e6,
                GetCurrentThreadId(), lane, mark.text.c_str());
    std::fflush(stdout);
}

void Timeline::add(const char* lane, const std::string& call, const char* name, Event event) {
    const std::lock_guard guard(mMutex);
    const std::string kind = call + "(" + std::to_string(event.code);
    mMarks.push_back({now(), Lane::Event, kind + ", " + std::to_string(event.value) + ")   " + name, kind});
    mEvents.push_back(event);
    if (mEvents.size() <= kMostPrinted) {
        print(lane, mMarks.back());
    } else if (mEvents.size() == kMostPrinted + 1) {
        std::printf("           ... further events are not printed\n");
    }
    mChanged.notify_all();
}

bool waitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kGuard;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(50ms);
    }
    return true;
}
