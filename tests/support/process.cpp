#include "support/process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>

#include <fcntl.h>

#include <uv.h>

#include "support/wait.h"

namespace support {

namespace {

constexpr int kDidNotEnd = -1000;

// A few handles and threads come and go with the system's own.
constexpr std::size_t kHandlesOfTheSystem = 5;
constexpr std::size_t kThreadsOfTheSystem = 2;

std::string change(const char* what, std::size_t before, std::size_t after) {
    return std::string(what) + " " + std::to_string(before) + " -> " + std::to_string(after);
}

struct Run {
    uv_process_t process{};
    uv_timer_t timeout{};
    int exitCode = kDidNotEnd;
};

int openOutput(const char* name) {
    uv_fs_t request;
    const int file = static_cast<int>(
        uv_fs_open(nullptr, &request, name, UV_FS_O_WRONLY | UV_FS_O_CREAT | UV_FS_O_TRUNC, 0644, nullptr));
    uv_fs_req_cleanup(&request);
    if (file < 0) {
        throw std::runtime_error(std::string("cannot write ") + name);
    }
    return file;
}

void closeOutput(int file) {
    uv_fs_t request;
    uv_fs_close(nullptr, &request, file, nullptr);
    uv_fs_req_cleanup(&request);
}

void onExit(uv_process_t* process, std::int64_t status, int signal) {
    auto* run = static_cast<Run*>(process->data);
    if (uv_is_active(reinterpret_cast<uv_handle_t*>(&run->timeout)) != 0) {
        run->exitCode = signal != 0 ? -signal : static_cast<int>(status);
    }
    uv_close(reinterpret_cast<uv_handle_t*>(&run->timeout), nullptr);
    uv_close(reinterpret_cast<uv_handle_t*>(process), nullptr);
}

void onTimeout(uv_timer_t* timer) {
    uv_process_kill(&static_cast<Run*>(timer->data)->process, SIGKILL);
}

int spawnAndWait(uv_process_options_t& options, std::chrono::milliseconds timeout) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    Run run;
    run.process.data = &run;
    run.timeout.data = &run;
    options.exit_cb = onExit;
    uv_timer_init(&loop, &run.timeout);
    const int result = uv_spawn(&loop, &run.process, &options);
    if (result == 0) {
        uv_timer_start(&run.timeout, onTimeout, static_cast<std::uint64_t>(timeout.count()), 0);
    } else {
        uv_close(reinterpret_cast<uv_handle_t*>(&run.timeout), nullptr);
        uv_close(reinterpret_cast<uv_handle_t*>(&run.process), nullptr);
    }
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    if (result != 0) {
        throw std::runtime_error(std::string("cannot start ") + options.file + ": " + uv_err_name(result));
    }
    return run.exitCode;
}

} // namespace

int runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
               std::chrono::seconds timeout) {
    std::string file = program.string();
    std::vector<std::string> words = arguments;
    std::vector<char*> argv = {file.data()};
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    uv_stdio_container_t streams[3] = {};
    streams[0].flags = UV_IGNORE;
    streams[1].flags = UV_INHERIT_FD;
    streams[1].data.fd = openOutput("stdout.txt");
    streams[2].flags = UV_INHERIT_FD;
    streams[2].data.fd = openOutput("stderr.txt");

    uv_process_options_t options{};
    options.file = file.c_str();
    options.args = argv.data();
    options.stdio = streams;
    options.stdio_count = 3;
    // Detached: without it libuv would put the program into a job of its own on Windows, and a host is in
    // none.
    options.flags = UV_PROCESS_DETACHED | UV_PROCESS_WINDOWS_HIDE;
    const int code = spawnAndWait(options, timeout);
    closeOutput(streams[1].data.fd);
    closeOutput(streams[2].data.fd);
    return code;
}

std::int64_t startProgram(const std::filesystem::path& program) {
    std::string file = program.string();
    char* argv[] = {file.data(), nullptr};
    uv_process_options_t options{};
    options.file = file.c_str();
    options.args = argv;
    options.flags = UV_PROCESS_DETACHED | UV_PROCESS_WINDOWS_HIDE;
    uv_loop_t loop;
    uv_loop_init(&loop);
    uv_process_t process{};
    const int result = uv_spawn(&loop, &process, &options);
    const std::int64_t pid = process.pid;
    uv_close(reinterpret_cast<uv_handle_t*>(&process), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    if (result != 0) {
        throw std::runtime_error("cannot start " + file + ": " + uv_err_name(result));
    }
    return pid;
}

std::string growth(const ProcessSize& before, const ProcessSize& after) {
    std::string grown;
    if (after.handles > before.handles + kHandlesOfTheSystem) {
        grown += change("handles", before.handles, after.handles) + "\n";
    }
    if (after.threads > before.threads + kThreadsOfTheSystem) {
        grown += change("threads", before.threads, after.threads) + "\n";
    }
    // The threads that the system has added have stacks.
    const std::size_t moreThreads = after.threads - std::min(before.threads, after.threads);
    if (after.memoryBytes > before.memoryBytes + levelMemory(moreThreads)) {
        grown += change("bytes", before.memoryBytes, after.memoryBytes) + "\n";
    }
    return grown;
}

std::string sizes(const ProcessSize& before, const ProcessSize& after) {
    return change("handles", before.handles, after.handles) + ", " +
           change("threads", before.threads, after.threads) + ", " +
           change("bytes", before.memoryBytes, after.memoryBytes);
}

testing::AssertionResult processEnds(std::int64_t pid, const std::string& program) {
    return eventually(
        program + " with the number " + std::to_string(pid) + " has ended",
        [&] { return !processRuns(pid, program); }, kProcessTimeout);
}

void killProcess(std::int64_t pid, const std::string& program) {
    if (processRuns(pid, program)) {
        uv_kill(static_cast<int>(pid), SIGKILL);
        processEnds(pid, program);
    }
}

std::filesystem::path programFolder() {
    char path[4096] = {};
    std::size_t size = sizeof path;
    if (uv_exepath(path, &size) != 0) {
        throw std::runtime_error("the program's own path is unknown");
    }
    return std::filesystem::path(std::string(path, size)).parent_path();
}

} // namespace support
