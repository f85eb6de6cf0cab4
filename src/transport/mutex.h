#pragma once

#include <uv.h>

#include <chrono>
#include <memory>

class OCondition;

/// A libuv mutex with an owner. Not recursive. Acquires everything when it is created: unlike the standard library's mutex
/// on some systems, locking it never throws.
class OMutex {
public:
    OMutex();
    virtual ~OMutex();
    OMutex(const OMutex&) = delete;
    OMutex& operator=(const OMutex&) = delete;

    void lock();
    void unlock();

private:
    friend class OCondition;

    std::unique_ptr<uv_mutex_t> mMutex;
};

/// What threads wait for under an OMutex.
class OCondition {
public:
    OCondition();
    ~OCondition();
    OCondition(const OCondition&) = delete;
    OCondition& operator=(const OCondition&) = delete;

    /// Unlocks `held` until notifyAll() or a spurious wake-up, and locks it again before it returns.
    void wait(OMutex& held);
    /// As wait(), for at most `limit`.
    void waitFor(OMutex& held, std::chrono::nanoseconds limit);
    void notifyAll();

private:
    uv_cond_t mCondition = {};
};
