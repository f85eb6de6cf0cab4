// Lines for the standard output, from any thread, without waiting for whoever reads them.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace host {

// Takes the standard output for itself: what the library or anything else in this process prints from then on goes to
// the standard error.
class LineOutput {
public:
    LineOutput();
    // Waits for the reader for a moment, and not for one that has stopped reading.
    ~LineOutput();
    LineOutput(const LineOutput&) = delete;
    LineOutput& operator=(const LineOutput&) = delete;

    // Never blocks: the library's thread writes events here. While too many lines wait, this one is dropped; the next
    // that fits comes after a line that says how many were.
    void write(std::string line);

private:
    void run();

    void* mOutput = nullptr; // HANDLE
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<std::string> mLines;
    std::size_t mDropped = 0;
    bool mEnding = false;
    bool mEnded = false;
    std::thread mThread;
};

} // namespace host
