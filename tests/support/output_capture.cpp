#include "support/output_capture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <stdexcept>

#include <gtest/gtest.h>

#include <fcntl.h>

#ifdef _WIN32
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#else
#include <unistd.h>
#endif

#include "support/last_lines.h"

namespace support {

namespace {

constexpr int kOutput = 1; // the descriptor of the standard output, everywhere

#ifdef _WIN32
// Appending, so that reading does not move the place where others write.
int openNameless() {
    const std::string name = "captured-" + std::to_string(_getpid());
    return _open(name.c_str(), _O_CREAT | _O_TEMPORARY | _O_RDWR | _O_APPEND | _O_BINARY | _O_NOINHERIT,
                 _S_IREAD | _S_IWRITE);
}

const auto kDuplicate = _dup;
const auto kDuplicateAs = _dup2;
const auto kClose = _close;
const auto kRead = _read;
const auto kWrite = _write;
const auto kSeek = _lseek;
#else
int openNameless() {
    char name[] = "captured-XXXXXX";
    const int file = mkostemp(name, O_APPEND | O_CLOEXEC);
    if (file >= 0) {
        unlink(name);
    }
    return file;
}

const auto kDuplicate = dup;
const auto kDuplicateAs = dup2;
const auto kClose = close;
const auto kRead = read;
const auto kWrite = write;
const auto kSeek = lseek;
#endif

struct Capture {
    std::mutex mutex; // of what follows
    int file = -1;    // -1 while nothing is captured
    int screen = -1;  // where the standard output led before
    std::string last; // of the running test's capture, when that has ended
    bool wasShown = false;
};

Capture& capture() {
    static auto& only = *new Capture;
    return only;
}

std::string readAll(int file) {
    std::fflush(stdout);
    kSeek(file, 0, SEEK_SET);
    std::string text;
    std::array<char, 4096> piece;
    while (true) {
        const auto count = kRead(file, piece.data(), piece.size());
        if (count <= 0) {
            break;
        }
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

/// GoogleTest's own message goes where the standard output leads: into the capture.
class Failures : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override {
        Capture& own = capture();
        const std::lock_guard guard(own.mutex);
        own.last.clear();
        own.wasShown = false;
    }

    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (!result.failed()) {
            return;
        }
        Capture& own = capture();
        const std::lock_guard guard(own.mutex);
        std::string text;
        if (own.file >= 0) {
            text = std::string(result.file_name() != nullptr ? result.file_name() : "somewhere") + ":" +
                   std::to_string(result.line_number()) + ": Failure\n" + result.message() + "\n";
        }
        const std::string captured = own.file >= 0 ? readAll(own.file) : own.last;
        if (!own.wasShown && !captured.empty()) {
            text += "Printed before, at most " + std::to_string(kLinesShown) + " lines:\n";
            text += lastLines(captured);
        }
        own.wasShown = true;
        std::fflush(stdout);
        kWrite(own.file >= 0 ? own.screen : kOutput, text.data(), static_cast<unsigned>(text.size()));
    }
};

const bool kListens = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Failures);
    return true;
}();

} // namespace

OutputCapture::OutputCapture() {
    Capture& own = capture();
    const std::lock_guard guard(own.mutex);
    if (own.file >= 0) {
        throw std::logic_error("the output is captured already");
    }
    std::cout.flush();
    std::fflush(stdout);
    own.file = openNameless();
    own.screen = kDuplicate(kOutput);
    if (own.file < 0 || own.screen < 0 || kDuplicateAs(own.file, kOutput) < 0) {
        throw std::runtime_error("cannot capture the output");
    }
    own.last.clear();
    own.wasShown = false;
}

OutputCapture::~OutputCapture() {
    end();
}

std::string OutputCapture::end() {
    Capture& own = capture();
    const std::lock_guard guard(own.mutex);
    if (own.file < 0) {
        return {};
    }
    std::cout.flush();
    own.last = readAll(own.file);
    kDuplicateAs(own.screen, kOutput);
    kClose(own.screen);
    kClose(own.file);
    own.file = own.screen = -1;
    return own.last;
}

} // namespace support
