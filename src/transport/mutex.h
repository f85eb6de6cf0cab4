#pragma once

#include <uv.h>

#include <memory>

/// A libuv mutex with an owner. Not recursive.
class OMutex {
public:
    OMutex();
    virtual ~OMutex();
    OMutex(const OMutex&) = delete;
    OMutex& operator=(const OMutex&) = delete;

    void lock();
    void unlock();

private:
    std::unique_ptr<uv_mutex_t> mMutex;
};
