#include "platform/thread.h"

#include <pthread.h>

#include <atomic>

namespace platform {

struct Thread::System {
    pthread_t thread{};
    bool joinable = false;
    std::atomic<bool> ended{true};
    void (*entry)(void*) = nullptr;
    void* argument = nullptr;

    static void* run(void* self) {
        auto* system = static_cast<System*>(self);
        system->entry(system->argument);
        system->ended.store(true);
        return nullptr;
    }
};

Thread::Thread() : mSystem(new System) {}

Thread::~Thread() = default;

bool Thread::start(void (*entry)(void*), void* argument) {
    join();
    mSystem->entry = entry;
    mSystem->argument = argument;
    mSystem->ended.store(false);
    mSystem->joinable = ::pthread_create(&mSystem->thread, nullptr, System::run, mSystem.get()) == 0;
    if (!mSystem->joinable) {
        mSystem->ended.store(true);
    }
    return mSystem->joinable;
}

bool Thread::hasEnded() const {
    return mSystem->ended.load();
}

void Thread::join() {
    if (mSystem->joinable) {
        ::pthread_join(mSystem->thread, nullptr);
        mSystem->joinable = false;
    }
}

} // namespace platform
