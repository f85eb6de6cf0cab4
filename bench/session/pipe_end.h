#pragma once

#include <uv.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

/// One end of a pipe, by libuv alone, with a loop and a thread of its own: the service that the library talks to, and the
/// client that the library is compared with.
class PipeEnd {
public:
    /// Called on the loop thread.
    using Received = std::function<void(const char* bytes, std::size_t size)>;

    enum class Role { Service, Client };

    /// A service listens on `name` on return; a client is connected. Ends the program when that fails.
    PipeEnd(Role role, const std::string& name, Received received);
    /// Closes the connection and ends the thread.
    ~PipeEnd();
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;

    /// Runs `task` on the loop thread. Any thread.
    void post(std::function<void()> task);
    /// The same, and returns when it has run. Any thread but the loop's.
    void postAndWait(std::function<void()> task);

    /// Hands bytes to libuv. Loop thread.
    void write(std::string bytes);

    /// Waits for a client.
    void waitForConnection();

private:
    void open(Role role, const std::string& name);
    void become(bool connected);
    void startReading();
    void closeConnection();
    static void runTasks(uv_async_t* wake);

    Received mReceived;
    uv_loop_t mLoop = {};
    uv_async_t mWake = {};
    uv_pipe_t mListener = {};
    uv_pipe_t mConnection = {};
    uv_connect_t mConnect = {};
    bool mIsOpen = false; ///< the connection; loop thread
    char mBuffer[65536] = {};

    std::mutex mMutex; ///< guards all below
    std::condition_variable mChanged;
    std::list<std::function<void()>> mTasks;
    bool mIsConnected = false;

    std::thread mThread;
};

/// A pipe name that no other program uses.
std::string freshPipePrefix();
