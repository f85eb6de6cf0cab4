// Processes seen from outside, and this process's own size.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/wait.h"

namespace support {

// True while a process of that number runs the program file of that name. The name protects against a number
// that the system has given to another process since.
bool processRuns(std::int64_t pid, const std::string& program);
// Until no process of that number runs the program.
testing::AssertionResult processEnds(std::int64_t pid, const std::string& program);
void killProcess(std::int64_t pid, const std::string& program);
// Running processes of the program in this one's folder.
std::size_t running(const std::string& program);

struct ProcessSize {
    std::size_t handles = 0; // handles on Windows, open files natively
    std::size_t threads = 0;
    std::size_t memoryBytes = 0; // private pages on Windows, what the allocator has given out natively
};

ProcessSize ownSize();

// How many bytes more `ownSize` may count when only this many threads of the system remain.
std::size_t levelMemory(std::size_t moreThreads = 0);

// What has grown by more than rounds without a leak explain, with its figures; empty when nothing has.
std::string growth(const ProcessSize& before, const ProcessSize& after);
// Both sizes side by side.
std::string sizes(const ProcessSize& before, const ProcessSize& after);

// Runs `program` in the current folder until it ends; its output goes to the files `stdout.txt` and
// `stderr.txt` there. Kills it and returns -1000 when it has not ended within the timeout.
int runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
               std::chrono::seconds timeout = kProcessTimeout);

// Starts `program` and leaves it to itself. Returns its process number.
std::int64_t startProgram(const std::filesystem::path& program);

// Folder of the running test program: the service, the DLL and the other programs are in it too.
std::filesystem::path programFolder();

// File name of a program of this build: "host_child" is host_child.exe on Windows.
std::string programFile(const std::string& name);

} // namespace support
