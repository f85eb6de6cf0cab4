#pragma once

#include "SonviaPCAudioDll.h"
#include "picture.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// Prints what happens, each line with its time and its thread, and remembers the events that came.
class Timeline {
public:
    static Timeline& instance();

    /// A line of the host's own: a call and what it returned, or a heading.
    void call(const std::string& text);
    void heading(const std::string& text);

    /// For AudioServiceParam; both run on the library's thread.
    static void onEvent(int event, int value);
    static void onError(int code, int value);

    /// Waits until the event has come; false after half a minute.
    bool waitForEvent(int event, int value);
    /// Waits until either callback has been called more than `count` times in all; false after half a minute.
    bool waitForMoreThan(std::size_t count);
    /// Waits until nothing has come for that long, half a minute at most.
    void waitForQuiet(std::chrono::milliseconds time);
    std::size_t count();
    bool lastWas(int code, int value);
    /// What the host saw, for the picture at the end.
    std::vector<Mark> marks();

private:
    struct Event {
        int code;
        int value;
    };

    void print(const char* lane, const Mark& mark);
    void add(const char* lane, const std::string& call, const char* name, Event event);

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Event> mEvents;
    std::vector<Mark> mMarks;
};

/// Waits until the condition holds; false after half a minute.
bool waitUntil(const std::function<bool()>& condition);
