// Every request for memory that the library makes is refused once, in every call of the host's and in every callback of
// libuv's: the host's process lives, nothing is leaked, nothing is made up, and all works again afterwards. A host in a
// process of its own does it (host_without_memory); one that dies of it is named here, and the next one goes on after it.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stress/memory/place_names.h"
#include "support/effort.h"
#include "support/process.h"
#include "support/standin.h"

namespace {

constexpr int kMaxProcesses = 400;
constexpr std::size_t kMaxFramesShown = 12;
constexpr int kMaxShown = 20; // to find the names takes a while
// Thousands of allocations fail in one run of the host, one at a time.
constexpr std::chrono::seconds kSweepTimeout{600};

std::vector<std::string> wordsOf(const std::string& line) {
    std::istringstream words(line);
    std::vector<std::string> all;
    for (std::string word; words >> word;) {
        all.push_back(word);
    }
    return all;
}

class MemoryThatRunsOut : public testing::Test {
protected:
    void SetUp() override { support::enterTestFolder(); }

    void sweep(const char* what) {
        int processes = 0;
        bool goesOn = true;
        while (goesOn && processes < kMaxProcesses) {
            ++processes;
            const int code = support::runProgram(mHost, {what}, kSweepTimeout);
            goesOn = read(code);
        }
        for (const auto& [place, wrong] : mWrong) {
            std::string all;
            for (const std::string& one : wrong) {
                all += one + "\n";
            }
            ADD_FAILURE() << all << "after the refusal of " << shown(place, 4);
        }
        EXPECT_FALSE(goesOn) << "there was always one more request";
        EXPECT_GT(mRefused, 0);
        support::tried(std::string("refused requests: ") + what, mRefused, "requests");
        RecordProperty("processes", processes);
        RecordProperty("spared", mSpared);
    }

private:
    // What the host's process has reported. False when it was the last one.
    bool read(int code) {
        std::ifstream file("progress.txt");
        std::string last = "nothing";
        bool ended = false;
        bool again = false;
        int count = 0;
        for (std::string line; std::getline(file, line);) {
            const std::vector<std::string> words = wordsOf(line);
            const bool isNew = ++count > mRead;
            if (words.empty()) {
                continue;
            }
            if (words[0] == "refused") {
                last = line;
            }
            if (!isNew) {
                continue;
            }
            mRefused += words[0] == "refused" ? 1 : 0;
            mSpared += words[0] == "spared" ? 1 : 0;
            ended = ended || words[0] == "ended";
            again = again || words[0] == "again";
            if (words[0] == "failed" || words[0] == "leaked") {
                mWrong[last].insert(words[0] == "failed" ? line : shown(line, 2));
            }
        }
        mRead = count;
        if (code != 0 || !ended) {
            mWrong[last].insert("the host's process ended with " + std::to_string(code) + "\n" + output());
            std::ofstream("progress.txt", std::ios::app) << "crash " << code << "\n";
        }
        return again || !ended;
    }

    std::string shown(const std::string& line, std::size_t from) {
        std::vector<std::string> words = wordsOf(line);
        if (words.size() <= from || ++mShown > kMaxShown) {
            return line + "\n";
        }
        std::string text;
        for (std::size_t i = 1; i < from; ++i) {
            text += words[i] + " ";
        }
        words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(from));
        words.resize(std::min(words.size(), kMaxFramesShown));
        return text + "\n" + placeNames(mHost.string(), words);
    }

    static std::string output() {
        std::ifstream file("stderr.txt");
        std::string text;
        int lines = 0;
        for (std::string line; std::getline(file, line) && lines < 30; ++lines) {
            text += line + "\n";
        }
        return text;
    }

    const std::filesystem::path mHost =
        support::programFolder() / support::programFile("host_without_memory");
    int mRead = 0;
    int mShown = 0;
    std::map<std::string, std::set<std::string>> mWrong; // by the refusal before
    long long mRefused = 0;
    int mSpared = 0;
};

TEST_F(MemoryThatRunsOut, InTheFirstInitOfAProcess) {
    sweep("first-init");
}

TEST_F(MemoryThatRunsOut, InLivesFromInitToUninit) {
    sweep("lives");
}

TEST_F(MemoryThatRunsOut, InCallsWhileConnected) {
    sweep("calls");
}

TEST_F(MemoryThatRunsOut, WhileNotificationsArrive) {
    sweep("notifications");
}

TEST_F(MemoryThatRunsOut, WhenTheConnectionIsLost) {
    sweep("losses");
}

TEST_F(MemoryThatRunsOut, WhereNobodyTakesTheConnection) {
    sweep("connects-in-vain");
}

} // namespace
