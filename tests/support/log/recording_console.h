#pragma once

#include "platform/console.h"

#include <mutex>
#include <string>
#include <vector>

namespace support {

/// Keeps what is printed. Any thread.
class RecordingConsole final : public platform::Console {
public:
    struct Coloured {
        unsigned attribute;
        std::string text;
    };

    /// A standard output that is no screen refuses coloured text.
    void setScreen(bool isScreen) {
        const std::lock_guard<std::mutex> guard(mLock);
        mIsScreen = isScreen;
    }

    bool printColoured(unsigned attribute, const char* text) override {
        const std::lock_guard<std::mutex> guard(mLock);
        if (mIsScreen) {
            mColoured.push_back({attribute, text});
        }
        return mIsScreen;
    }

    void print(const char* text) override {
        const std::lock_guard<std::mutex> guard(mLock);
        mPlain.emplace_back(text);
    }

    std::vector<Coloured> coloured() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mColoured;
    }

    /// Everything printed without colour, one after the other.
    std::string plain() {
        const std::lock_guard<std::mutex> guard(mLock);
        std::string all;
        for (const std::string& text : mPlain) {
            all += text;
        }
        return all;
    }

    int timesPlain(const std::string& text) {
        const std::lock_guard<std::mutex> guard(mLock);
        int times = 0;
        for (const std::string& printed : mPlain) {
            times += printed == text ? 1 : 0;
        }
        return times;
    }

    int timesColoured(const std::string& text) {
        const std::lock_guard<std::mutex> guard(mLock);
        int times = 0;
        for (const Coloured& printed : mColoured) {
            times += printed.text == text ? 1 : 0;
        }
        return times;
    }

    void forget() {
        const std::lock_guard<std::mutex> guard(mLock);
        mColoured.clear();
        mPlain.clear();
    }

private:
    std::mutex mLock;
    bool mIsScreen = true;
    std::vector<Coloured> mColoured;
    std::vector<std::string> mPlain;
};

} // namespace support
