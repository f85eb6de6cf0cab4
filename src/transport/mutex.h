#pragma once

#include <uv.h>

#include <chrono>
#include <memory>

class OCondition;

/// A libuv mutex with an owner. Not recursive. Takes all that it needs when it is made: unlike the standard library's
/// mutex on some systems, it never throws when it is locked.
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

    /// Gives `held` up until notifyAll(), or a little earlier for no reason; holds it again on return.
    void wait(OMutex& held);
    /// As wait(), for at most `limit`.
    void waitFor(OMutex& held, std::chrono::nanoseconds limit);
    void notifyAll();

private:
    uv_cond_t mCondition = {};
};
