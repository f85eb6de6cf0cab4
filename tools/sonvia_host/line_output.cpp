#include "line_output.h"

#include <chrono>
#include <utility>

#include <io.h>
#include <windows.h>

namespace host {

namespace {

constexpr std::size_t kMaxWaiting = 2000;
constexpr std::chrono::seconds kWaitForReader{2};

bool writeAll(HANDLE output, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        DWORD now = 0;
        if (WriteFile(output, text.data() + written, static_cast<DWORD>(text.size() - written), &now,
                      nullptr) == 0) {
            return false;
        }
        written += now;
    }
    return true;
}

} // namespace

LineOutput::LineOutput() {
    const HANDLE self = GetCurrentProcess();
    // Not inherited: the service must not hold the reader's pipe open.
    DuplicateHandle(self, GetStdHandle(STD_OUTPUT_HANDLE), self, &mOutput, 0, FALSE, DUPLICATE_SAME_ACCESS);
    _dup2(2, 1);
    SetStdHandle(STD_OUTPUT_HANDLE, GetStdHandle(STD_ERROR_HANDLE));
    mThread = std::thread([this] { run(); });
}

LineOutput::~LineOutput() {
    std::unique_lock<std::mutex> lock(mMutex);
    mEnding = true;
    mChanged.notify_all();
    if (!mChanged.wait_for(lock, kWaitForReader, [this] { return mEnded; })) {
        // The thread is inside WriteFile, for a reader that does not read: there is no other way out.
        TerminateProcess(GetCurrentProcess(), 0);
    }
    lock.unlock();
    mThread.join();
    CloseHandle(mOutput);
}

void LineOutput::write(std::string line) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mLines.size() >= kMaxWaiting) {
        ++mDropped;
        return;
    }
    if (mDropped != 0) {
        mLines.push_back("{\"dropped\":" + std::to_string(std::exchange(mDropped, 0)) + "}\n");
    }
    mLines.push_back(std::move(line) + "\n");
    mChanged.notify_all();
}

void LineOutput::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mLines.empty() || !mEnding) {
        if (mLines.empty()) {
            mChanged.wait(lock);
            continue;
        }
        const std::string line = std::move(mLines.front());
        mLines.pop_front();
        lock.unlock();
        const bool written = writeAll(mOutput, line);
        lock.lock();
        if (!written) {
            // Nobody reads any more. The end of the standard input, which comes then too, ends the process.
            mLines.clear();
        }
    }
    mEnded = true;
    mChanged.notify_all();
}

} // namespace host
