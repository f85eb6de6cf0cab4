#pragma once

#include "platform/thread.h"

namespace orvel::log4z {

/// An object with a thread of its own. The deriving class ends its thread before it is destroyed.
class ThreadHelper {
public:
    /// How the system is asked for a thread; a test gives its own.
    using Starter = bool (*)(platform::Thread& thread, void (*entry)(void*), void* argument);

    explicit ThreadHelper(Starter starter) : mStarter(starter) {}

    virtual ~ThreadHelper() = default;
    ThreadHelper(const ThreadHelper&) = delete;
    ThreadHelper& operator=(const ThreadHelper&) = delete;

    /// False when the system gives no thread.
    bool startThread() { return mStarter(mThread, enter, this); }

    /// Waits without limit for `run` to return.
    void joinThread() { mThread.join(); }

    /// Also true when the system has ended the thread, as it does when the process exits. Blocks: never.
    bool threadHasEnded() const { return mThread.hasEnded(); }

protected:
    /// The thread's whole life.
    virtual void run() = 0;

private:
    static void enter(void* self) { static_cast<ThreadHelper*>(self)->run(); }

    const Starter mStarter;
    platform::Thread mThread;
};

} // namespace orvel::log4z
