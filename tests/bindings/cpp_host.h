// A host in C++ with a session of its own: what its handlers saw, and a stand-in service.
#pragma once

#include <exception>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SonviaPCAudio.hpp"
#include "support/standin.h"
#include "support/wait.h"

namespace support {

// The host's own state, which its handlers reach without a static variable.
class Seen {
public:
    void add(const std::string& line) {
        mMonitor.change([&] { mLines.push_back(line); });
    }

    std::vector<std::string> lines() const {
        return mMonitor.read([this] { return mLines; });
    }

    testing::AssertionResult waitFor(std::size_t count) const {
        return mMonitor.reaches(count, "calls", [this] { return mLines.size(); });
    }

private:
    Monitor mMonitor; // of what follows
    std::vector<std::string> mLines;
};

class CppHost : public testing::Test {
protected:
    void SetUp() override { enterTestFolder(); }

    static sonvia::Library library() {
        sonvia::Library found;
#ifdef _WIN32
        const std::error_code failed = found.load();
        EXPECT_FALSE(failed) << failed.message();
#else
        found = sonvia::Library::linked();
#endif
        return found;
    }

    // Handlers that write "bufferingStarted 0", "connection -4095" and "exception: text" into `seen`.
    sonvia::Handlers handlers() {
        return {[this](const sonvia::Event& event) {
                    seen.add(std::string(nameOf(event.kind)) + " " + std::to_string(event.value));
                },
                [this](const sonvia::Error& error) {
                    seen.add(std::string(nameOf(error.kind)) + " " + std::to_string(error.value));
                },
                [this](const std::exception_ptr& thrown) {
                    try {
                        std::rethrow_exception(thrown);
                    } catch (const std::exception& exception) {
                        seen.add(std::string("exception: ") + exception.what());
                    }
                }};
    }

    std::error_code open(const std::string& scenario, sonvia::Handlers chosen) {
        standin.play(scenario);
        return session.open(library(), options, std::move(chosen));
    }

    void start(const std::string& scenario, sonvia::Handlers chosen) {
        ASSERT_EQ(open(scenario, std::move(chosen)), std::error_code());
        ASSERT_EQ(session.connect(identity), std::error_code());
        // A service that was never connected cannot be asked to stop: its end takes a second more.
        ASSERT_TRUE(scenario.find("no-pipe") != std::string::npos ||
                    standin.waitForPackets(1, kNotify, "KORUInfo"));
    }

    void start(const std::string& scenario) {
        start(scenario, handlers());
    }

    Standin standin;
    Seen seen;
    sonvia::Options options{"logs", sonvia::LogLevel::Warning, std::chrono::seconds(60)};
    sonvia::Identity identity{"account", "device", "serial", "model", "mac", "pc"};
    sonvia::Session session; // last: its end needs the others
};

} // namespace support
