#include "support/log/line_account.h"

#include <miniz.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace support {

namespace {

constexpr char kMark[] = "#number ";
constexpr char kEnd[] = " whole\r\n";

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// Whether the archive next to a removed log holds it, or another log of that name; not when it is torn or short.
bool isPacked(const MemoryFiles::Removed& gone) {
    const std::string text = unpackedText(gone.archive);
    return numbersIn(gone.content).empty() || text == gone.content ||
           (!text.empty() && !gone.content.starts_with(text));
}

} // namespace

bool pushNumbered(orvel::log4z::LogerManager& manager, int id, int number, int size) {
    orvel::log4z::LogRecord* record = manager.makeRecord(id, orvel::log4z::kLevelError);
    const std::string text =
        std::string(static_cast<std::size_t>(size) * 100, 'x') + kMark + std::to_string(number) + " whole";
    std::memcpy(record->content + record->contentLength, text.data(), text.size());
    record->contentLength += static_cast<std::int32_t>(text.size());
    return manager.pushLog(record, nullptr, 0);
}

std::vector<int> numbersIn(const std::string& text) {
    std::vector<int> numbers;
    for (std::size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark, at + 1)) {
        char* end = nullptr;
        const long number = std::strtol(text.c_str() + at + sizeof kMark - 1, &end, 10);
        if (std::strncmp(end, kEnd, sizeof kEnd - 1) == 0) {
            numbers.push_back(static_cast<int>(number));
        }
    }
    return numbers;
}

std::string unpackedText(const std::string& archive) {
    mz_zip_archive zip;
    mz_zip_zero_struct(&zip);
    std::string text;
    if (mz_zip_reader_init_mem(&zip, archive.data(), archive.size(), 0) == MZ_FALSE) {
        return text;
    }
    mz_zip_archive_file_stat status;
    if (mz_zip_reader_file_stat(&zip, 0, &status) != MZ_FALSE) {
        text.resize(static_cast<std::size_t>(status.m_uncomp_size));
        if (mz_zip_reader_extract_to_mem(&zip, 0, text.data(), text.size(), 0) == MZ_FALSE) {
            text.clear();
        }
    }
    mz_zip_reader_end(&zip);
    return text;
}

bool LineAccount::onceEach() const {
    return std::all_of(times.begin(), times.end(), [](const auto& entry) { return entry.second == 1; });
}

LineAccount accountFor(const MemoryFiles& disk, const std::string& namePart) {
    LineAccount account;
    std::multimap<std::string, std::string> logs; // by name is by time
    for (const MemoryFiles::Removed& gone : disk.removed()) {
        const std::string name = lastComponent(gone.path);
        if (name.find(namePart) == std::string::npos || !name.ends_with(".log")) {
            continue;
        }
        logs.emplace(name, gone.content);
        account.archivesHold = account.archivesHold && (gone.archive.empty() || isPacked(gone));
    }
    for (const std::string& path : disk.pathsWith(namePart)) {
        if (path.ends_with(".log")) {
            logs.emplace(lastComponent(path), disk.content(path));
        }
    }
    int last = -1;
    for (const auto& [name, text] : logs) {
        int lastHere = -1;
        for (const int number : numbersIn(text)) {
            account.inOrder = account.inOrder && number > lastHere;
            account.namesInOrder = account.namesInOrder && number > last;
            last = lastHere = number;
            ++account.times[number];
        }
    }
    return account;
}

} // namespace support
