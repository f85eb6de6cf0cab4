#include "timeline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <windows.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kGuard = 30s;

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
    print("call ", text);
}

void Timeline::heading(const std::string& text) {
    const std::lock_guard guard(mMutex);
    std::printf("\n%s\n\n", text.c_str());
    std::fflush(stdout);
}

void Timeline::onEvent(int event, int value) {
    instance().add("event",
                   "onEvent(" + std::to_string(event) + ", " + std::to_string(value) + ")   " + nameOf(event),
                   {event, value});
}

void Timeline::onError(int code, int value) {
    instance().add("error", "onError(" + std::to_string(code) + ", " + std::to_string(value) + ")",
                   {code, value});
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

void Timeline::print(const char* lane, const std::string& text) {
    static const auto start = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%7.3f s  thread %04lx  %s  %s\n", seconds, GetCurrentThreadId(), lane, text.c_str());
    std::fflush(stdout);
}

void Timeline::add(const char* lane, const std::string& text, Event event) {
    const std::lock_guard guard(mMutex);
    print(lane, text);
    mEvents.push_back(event);
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
