// Translates between lines of JSON and a session: each line that comes is a call and gets one line back; events and
// errors of the service are lines of their own.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include <nlohmann/json.hpp>

#include "SonviaPCAudio.hpp"
#include "line_output.h"

namespace host {

class Conversation {
public:
    Conversation(LineOutput& output, sonvia::Library library, std::chrono::milliseconds connectTime);

    void take(const std::string& line);
    void close();

private:
    using Json = nlohmann::json;

    // Each returns the result of the call, or throws std::error_code or a Json exception.
    Json init(const Json& call);
    Json setParam(const Json& call);
    Json setAccountID(const Json& call);
    Json perform(const Json& call);

    void write(const Json& line);
    void report(const char* reason, std::size_t position, const std::string& message);

    LineOutput& mOutput;
    sonvia::Library mLibrary;
    std::chrono::milliseconds mConnectTime;
    sonvia::Identity mIdentity;
    sonvia::Session mSession;
    std::size_t mLines = 0;
};

} // namespace host
