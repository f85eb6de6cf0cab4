// A host without a window: calls come as lines of JSON on the standard input, results and events leave as lines of JSON
// on the standard output. The end of the input ends the session and the program.
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <io.h>

#include <windows.h>

#include <shellapi.h> // wants windows.h before it

#include "conversation.h"
#include "line_output.h"

namespace {

int converse(const std::string& libraryFolder, std::chrono::milliseconds connectTime) {
    host::LineOutput output;
    sonvia::Library library;
    if (const std::error_code failed = library.load(libraryFolder)) {
        std::cerr << "SonviaPCAudioDll.dll: " << failed.message() << "\n";
        return 1;
    }
    host::Conversation conversation(output, library, connectTime);
    _setmode(0, _O_BINARY); // or a byte 26 would end the input
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        conversation.take(line);
    }
    conversation.close();
    return 0;
}

// In UTF-8, last one first, as CLI11 wants them: those of main are in the code page.
std::vector<std::string> arguments() {
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> found;
    for (int i = count - 1; words != nullptr && i > 0; --i) {
        const std::u8string word = std::filesystem::path(words[i]).u8string();
        found.emplace_back(word.begin(), word.end());
    }
    LocalFree(words);
    return found;
}

} // namespace

int main() {
    CLI::App app(
        "Drives the audio-casting service: one JSON call a line in, one JSON result or event a line out.",
        "sonvia-host");
    app.set_version_flag("--version", SONVIA_VERSION_STRING);
    std::string libraryFolder;
    app.add_option("--library", libraryFolder,
                   "folder of SonviaPCAudioDll.dll; otherwise that of this program");
    std::int64_t connectTime = 5000;
    app.add_option("--connect-time", connectTime,
                   "milliseconds in which a service that starts slowly is asked again")
        ->check(CLI::Range(0, 3600000))
        ->capture_default_str();
    try {
        app.parse(arguments());
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return converse(libraryFolder, std::chrono::milliseconds(connectTime));
}
