// One host with one handle and one stand-in service: the fixture of most integration tests.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/host_events.h"
#include "support/host_library.h"
#include "support/standin.h"

namespace support {

class ServiceTest : public testing::Test {
protected:
    void SetUp() override;
    // Releases the handle if the test did not, and ends what was started.
    void TearDown() override;

    // initSonviaAudioService with the service playing the scenario. Returns when the service has opened its pipe, unless
    // the scenario decides itself when it does: the library connects once, and a busy machine may need longer than the
    // 200 ms that it gives the service. Throws when anything fails: no test runs without its fixture.
    void start(const std::string& scenario);
    // start, then setParam with a complete record.
    void startAndConfigure(const std::string& scenario);
    // startAndConfigure with steps that are played once the device information has arrived. Returns when the library has
    // handled them all: they are followed by a mode that no test uses otherwise, kLastMode.
    void playConnected(const std::string& steps);
    // uninitSonviaAudioService.
    void stop();

    static constexpr int kLastMode = 777777;

    const HostApi& api = hostApi();
    HostEvents& events = HostEvents::instance();
    Standin standin;
    AudioServiceHandle* handle = nullptr;
};

// Folder that the library is given for its log: one for the process, because the library keeps the first.
std::string logFolder();
// All log lines that the library has written for a host that named that folder: where they belong, and nowhere else.
std::string logText(const std::string& folder = logFolder());

// A line of the log without its time, process, thread and source line.
struct LoggedLine {
    std::string level; // INFO, say
    std::string tag;
    std::string function;
    std::string text;

    bool operator==(const LoggedLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LoggedLine& line);
// All lines of logText, in order; those of one tag when one is named.
std::vector<LoggedLine> loggedLines(const std::string& folder = logFolder(), const std::string& tag = {});

// The steps that almost every scenario begins with: until the device information has arrived.
inline constexpr const char* kAfterDeviceInformation = "wait packet command 34 key KORUInfo\n";

} // namespace support
