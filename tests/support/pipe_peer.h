// The other end of a pipe, played by plain libuv on a loop and a thread of its own: what the library writes and
// reads is judged by code that shares nothing with it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace support {

// A prefix for pipe names that no other test and no other run uses. Natively a file name in the current folder.
std::string uniquePipePrefix();

class PipePeer {
public:
    enum class Reads { kAtOnce, kWhenTold };

    // Listens on `fullName` before it returns; throws std::runtime_error when that cannot be. Each client that
    // connects takes the place of the one before.
    explicit PipePeer(const std::string& fullName, Reads reads = Reads::kAtOnce);
    // Closes everything and ends the thread.
    ~PipePeer();
    PipePeer(const PipePeer&) = delete;
    PipePeer& operator=(const PipePeer&) = delete;

    void startReading();
    // Dropped when no client is connected.
    void send(std::string bytes);
    // Closes the connection without flushing.
    void disconnect();

    // Everything that clients have sent so far.
    std::string received() const;

    // Each waits, at most for the timeout.
    testing::AssertionResult waitForConnections(std::size_t count) const;
    testing::AssertionResult waitForBytes(std::size_t count) const;
    // Until the client has closed its end (only noticed while reading).
    testing::AssertionResult waitForEnd() const;

private:
    struct State;
    void end();
    void post(std::function<void(State&)> task);

    std::unique_ptr<State> mState;
};

} // namespace support
