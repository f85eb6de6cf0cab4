#include "api/service_process.h"

#include <string>

namespace api {

namespace {

constexpr const char* kServiceProgram = "QuPCAudio.exe";

} // namespace

std::unique_ptr<platform::Process> startService(const char* logDir, int logLevel, int& systemError) {
    return platform::Process::start(kServiceProgram, {logDir, std::to_string(logLevel)}, systemError);
}

void endEveryService() noexcept {
    platform::Process::endAll(kServiceProgram);
}

} // namespace api
