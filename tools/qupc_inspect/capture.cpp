#include "capture.h"

#include <algorithm>
#include <chrono>
#include <istream>
#include <thread>

#include <fmt/format.h>

#include "capture_line.h"
#include "hex.h"

namespace inspect {

namespace {

constexpr auto kFollowPause = std::chrono::milliseconds(50);

Form formOf(char first) {
    if (first == '{') {
        return Form::Capture;
    }
    return first == '$' ? Form::Raw : Form::Hex;
}

} // namespace

const char* nameOf(Side side) {
    return side == Side::Host ? "host" : "service";
}

CaptureReader::CaptureReader(std::istream& in, std::string name, const Options& options)
    : mIn(in), mName(std::move(name)), mOptions(options) {}

void CaptureReader::fail(const std::string& expected) const {
    throw InputError(fmt::format("{}:{}: expected {}", mName, mLine, expected));
}

bool CaptureReader::next(Chunk& chunk) {
    chunk = Chunk();
    if (mOptions.form == Form::Guess) {
        if (!fill()) {
            return false;
        }
        mOptions.form = formOf(mBuffer.front());
    }
    switch (mOptions.form) {
    case Form::Capture:
        return nextOfCapture(chunk);
    case Form::Hex:
        return nextOfHex(chunk);
    default:
        return nextOfRaw(chunk);
    }
}

// Takes what has come, and waits for nothing more than the first byte of it: the input may be a pipe that stays open.
bool CaptureReader::fill() {
    while (mIn.peek() == std::istream::traits_type::eof()) {
        if (mIn.bad()) {
            throw InputError(fmt::format("{}: expected a file that can be read", mName));
        }
        if (!mOptions.follow) {
            return false;
        }
        std::this_thread::sleep_for(kFollowPause);
        mIn.clear();
        // A C library may remember where the file ended until somebody seeks in it: under Wine nothing more came, once in
        // a while (inspect_follow). Standard input cannot be sought in, and need not be.
        mIn.seekg(0, std::ios::cur);
        mIn.clear();
    }
    char piece[65536];
    std::streamsize count = mIn.readsome(piece, sizeof piece);
    if (count == 0) { // a stream that does not know how much it has
        piece[0] = static_cast<char>(mIn.get());
        count = 1;
    }
    mBuffer.append(piece, static_cast<std::size_t>(count));
    return true;
}

bool CaptureReader::nextLine(std::string& line) {
    std::size_t end = mBuffer.find('\n', mSearched);
    while (end == std::string::npos) {
        mSearched = mBuffer.size();
        if (mSearched > kLongestLine) {
            ++mLine;
            fail(fmt::format("a line of at most {} bytes", kLongestLine));
        }
        if (!fill()) {
            break;
        }
        end = mBuffer.find('\n', mSearched);
    }
    line = mBuffer.substr(0, end);
    mBuffer.erase(0, end == std::string::npos ? end : end + 1);
    mSearched = 0;
    ++mLine;
    return end != std::string::npos || !line.empty();
}

bool CaptureReader::nextOfCapture(Chunk& chunk) {
    std::string line;
    while (!mEnded && nextLine(line)) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        try {
            const CaptureLine said = readCaptureLine(line);
            if (said.isHead) {
                mMasked = said.masked;
                continue;
            }
            chunk = said.chunk;
        } catch (const std::invalid_argument& error) {
            fail(error.what());
        }
        chunk.line = mLine;
        mEnded = mOptions.follow && chunk.mark == "exit";
        return true;
    }
    return false;
}

bool CaptureReader::nextOfHex(Chunk& chunk) {
    std::string line;
    while (nextLine(line)) {
        line.erase(std::min(line.find('#'), line.size()));
        const std::size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos) {
            continue;
        }
        chunk.from = mOptions.from;
        if (line[start] == '>' || line[start] == '<') {
            chunk.from = line[start] == '>' ? Side::Host : Side::Service;
            line[start] = ' ';
        }
        try {
            chunk.bytes = bytesOfHex(line);
        } catch (const std::invalid_argument& error) {
            fail(error.what());
        }
        chunk.line = mLine;
        return true;
    }
    return false;
}

bool CaptureReader::nextOfRaw(Chunk& chunk) {
    if (mBuffer.empty() && !fill()) {
        return false;
    }
    chunk.bytes = oracle::bytesOf(mBuffer);
    chunk.from = mOptions.from;
    mBuffer.clear();
    return true;
}

} // namespace inspect
