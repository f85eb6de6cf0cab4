#include "subjects.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

int formatMessage(char* out, std::size_t size, Line line, int number) {
    return line == Line::Short
               ? std::snprintf(out, size, kShortFormat, kFunction, 395, number)
               : std::snprintf(out, size, kLongFormat, kFunction, 395, number, kPhone, 250, 400, 2);
}

int formatWholeLine(char* out, std::size_t size, Line line, int number) {
    return line == Line::Short
               ? std::snprintf(
                     out, size,
                     "%02d-%02d %02d:%02d:%02d.%03d [%s] [%04u] %-5s %s: [%s:%d]Player state is %d.\r\n", 11,
                     21, 9, 59, 7, number % 1000, "bench_log", 31337u, "INFO", kTag, kFunction, 395, number)
               : std::snprintf(
                     out, size,
                     "%02d-%02d %02d:%02d:%02d.%03d [%s] [%04u] %-5s %s: [%s:%d]Player state is %d, phone "
                     "%s, buffered %d ms of %d ms, mode %d.\r\n",
                     11, 21, 9, 59, 7, number % 1000, "bench_log", 31337u, "INFO", kTag, kFunction, 395,
                     number, kPhone, 250, 400, 2);
}

std::uint64_t countLines(const std::string& folder) {
    std::uint64_t lines = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.is_symlink()) {
            continue;
        }
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        constexpr std::string_view kMark = "Player state is ";
        for (std::size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; at += kMark.size()) {
            const std::size_t end = text.find('\n', at);
            lines += end != std::string::npos && text.find('.', at) < end ? 1 : 0;
        }
    }
    return lines;
}

std::string freshFolder(const std::string& within) {
    static int serial = 0;
    const std::filesystem::path parent = std::filesystem::is_directory(within)
                                             ? std::filesystem::path(within)
                                             : std::filesystem::temp_directory_path();
    const auto folder = parent / ("bench_log_" + std::to_string(serial++));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder.string();
}
