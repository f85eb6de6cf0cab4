// A test's hold on the stand-in service: its scenario, its record, and words passed to it while it runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/json.h"

namespace support {

inline constexpr std::int64_t kNotify = 34;
inline constexpr std::int64_t kStop = 8193;

// Makes a new, empty folder for the running test below the program's first current folder, and makes it
// current. The pipe of the native build, the scenario and the record live there.
void enterTestFolder();

// Entry of that key in a packet's (or a nested entry's) list; throws std::runtime_error when there is none.
const Json& entryOf(const Json::List& entries, const std::string& key);

// Lines of that event in the record that the environment names: for programs that a test starts.
std::size_t countInRecord(const std::string& event);

class Standin {
public:
    // Ends whatever the record says was started and may still run.
    ~Standin();

    // Writes the scenario into the current folder and points the environment of this process, and so of the
    // services that it starts, at it and at an empty record.
    void play(const std::string& scenario);

    // The file that `wait file NAME` waits for.
    void signal(const std::string& name);

    // Lines of the record so far.
    const std::vector<Json>& record();
    std::vector<Json> recorded(const std::string& event);
    // Packets of one command; of one key too when it is given.
    std::vector<Json> packets(std::int64_t command, const std::string& key = {});

    // Each waits, at most for the timeout.
    testing::AssertionResult waitForEvent(const std::string& event, std::size_t count = 1);
    testing::AssertionResult waitForNote(const std::string& text);
    testing::AssertionResult waitForPackets(std::size_t count, std::int64_t command,
                                            const std::string& key = {});

    // Process number of the service started last; 0 when none was.
    std::int64_t pid();
    bool running();

private:
    struct Started {
        std::int64_t pid;
        const char* image;
    };

    // Remembers what the record says was started.
    void keepStarted();

    std::vector<Started> mStarted;
    std::string mRecordPath;
    std::size_t mRead = 0;
    std::vector<Json> mRecord;
};

} // namespace support
