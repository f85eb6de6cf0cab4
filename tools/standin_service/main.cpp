// The stand-in service process. README.md in this folder says how to drive it.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <uv.h>

#include "player.h"

namespace {

constexpr const char* kDefaultPipe = R"(\\.\pipe\uv_pipe.QuPCAudio)";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

standin::Scenario loadScenario(const std::string& path) {
    if (path.empty()) {
        return standin::parseScenario(""); // serve until stopped
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        standin::Scenario unreadable;
        unreadable.error = "cannot read " + path;
        return unreadable;
    }
    return standin::parseScenario(
        std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
}

// The program that plays a child process lies beside this one.
std::string childProgram() {
    char path[4096] = {};
    std::size_t size = sizeof path;
    if (uv_exepath(path, &size) != 0) {
        return {};
    }
    const std::string self(path, size);
    return self.substr(0, self.find_last_of("/\\") + 1) + "standin_child.exe";
}

standin::RecordLine startLine(int argc, char** argv) {
    std::string arguments = "[";
    for (int i = 0; i < argc; ++i) {
        arguments.append(i == 0 ? "" : ",").append(standin::jsonText(argv[i]));
    }
    return standin::RecordLine("start").number("pid", uv_os_getpid()).json("argv", arguments + "]");
}

} // namespace

int main(int argc, char** argv) {
    standin::Record record(environment("SONVIA_STANDIN_RECORD"));
    record.write(startLine(argc, argv));

    standin::Scenario scenario = loadScenario(environment("SONVIA_STANDIN_SCENARIO"));
    if (!scenario.error.empty()) {
        record.write(standin::RecordLine("scenario-error").text("reason", scenario.error));
        return standin::kExitBadScenario;
    }
    const std::string pipe = environment("SONVIA_STANDIN_PIPE");
    standin::Player player(uv_default_loop(), std::move(scenario), pipe.empty() ? kDefaultPipe : pipe,
                           childProgram(), record);
    player.start();
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
