// How hard a test tries, and how it says what it tried. `./test` runs the short form of every test, `./test --long`
// sets SONVIA_EFFORT=long for all of them, under Wine too.
#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace support {

inline bool longForm() {
    const char* effort = std::getenv("SONVIA_EFFORT");
    return effort != nullptr && std::string_view(effort) == "long";
}

// How often to repeat what the test does.
inline int rounds(int shortForm, int inLongForm) {
    return longForm() ? inLongForm : shortForm;
}

// The same for rounds that start a process and wait for its end, a second or more each: so many on the system that ships,
// and a tenth of the long form's elsewhere, where the sanitizers see in them all that they would see in the rest.
inline int processRounds(int shortForm, int inLongForm) {
#ifdef _WIN32
    return rounds(shortForm, inLongForm);
#else
    return rounds(shortForm, (inLongForm + 9) / 10);
#endif
}

// Notes for the table at the end of ./test that the running test tried this so often. Call it on the test's own thread
// when the work is done, with what was counted and not with what was planned; `unit` names what was counted.
inline void tried(const std::string& what, long long times, const std::string& unit = "rounds") {
    testing::Test::RecordProperty("tried: " + what + " (" + unit + ")", std::to_string(times));
}

// Notes how long the longest of them took: shown, and not judged.
inline void longest(const std::string& what, std::chrono::milliseconds lasted) {
    testing::Test::RecordProperty("longest: " + what + " (ms)", std::to_string(lasted.count()));
}

// Notes how long each of them took, for a picture of ./test --long; `curve` is one of those in the picture.
inline void durations(const std::string& picture, const std::string& curve,
                      const std::vector<std::chrono::microseconds>& lasted) {
    std::string list;
    for (const std::chrono::microseconds each : lasted) {
        list += std::to_string(each.count()) + " ";
    }
    testing::Test::RecordProperty("durations: " + picture + ": " + curve, list);
}

} // namespace support
