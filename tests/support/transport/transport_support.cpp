#include "support/transport/transport_support.h"

#include "support/pipe_peer.h"
#include "transport/loop_log.h"

#include <algorithm>
#include <csignal>

namespace {

// Before the first test. Natively a peer that has gone shows as an error of the write, as it does in every host
// that writes to pipes.
const bool prepared = [] {
#ifndef _WIN32
    std::signal(SIGPIPE, SIG_IGN);
#endif
    quietLoopLog();
    return true;
}();

} // namespace

void quietLoopLog() {
    setLoopLogSink([](int, const char*, const char*) {});
}

void LoopThread::run() {
    auto entered = std::make_shared<Signal>();
    mThread = std::thread([this, entered] { lastRunResult = mLoop->run([entered] { entered->set(); }); });
    ASSERT_TRUE(entered->wait());
}

void LoopThread::stop() {
    mLoop->stop();
    join();
}

void LoopThread::join() {
    if (mThread.joinable()) {
        mThread.join();
    }
}

void LoopThread::call(std::function<void()> work) {
    auto done = std::make_shared<Signal>();
    ASSERT_EQ(mLoop->post([work = std::move(work), done] {
        work();
        done->set();
    }),
              0);
    ASSERT_TRUE(done->wait());
}

std::shared_ptr<Signal> LoopThread::hold() {
    auto entered = std::make_shared<Signal>();
    auto released = std::make_shared<Signal>();
    mLoop->post([entered, released] {
        entered->set();
        released->wait();
    });
    EXPECT_TRUE(entered->wait());
    return released;
}

template <typename Change>
void Reports::change(Change change) {
    {
        const std::lock_guard guard(mMutex);
        change();
    }
    mChanged.notify_all();
}

template <typename Condition>
bool Reports::waitFor(Condition condition) const {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, support::kGuard, condition);
}

void Reports::attachTo(OBaseSocket& socket) {
    socket.setReadCallback([this](OBaseSocket*, const OBufList& list, std::int32_t) {
        change([&] {
            for (const OBufView& view : list) {
                mBytes.append(reinterpret_cast<const char*>(view.data()),
                              static_cast<std::size_t>(view.length));
            }
        });
    });
    socket.setWriteCallback([this](OBaseSocket*, const OBufList&, std::int32_t status) {
        change([&] { mWrites.push_back(status); });
    });
    socket.setEventCallback([this](OBaseSocket*, std::int32_t code, std::int32_t status) {
        change([&] { mEvents.emplace_back(code, status); });
    });
}

std::vector<Reports::Event> Reports::events() const {
    const std::lock_guard guard(mMutex);
    return mEvents;
}

std::string Reports::bytes() const {
    const std::lock_guard guard(mMutex);
    return mBytes;
}

std::vector<std::int32_t> Reports::writes() const {
    const std::lock_guard guard(mMutex);
    return mWrites;
}

bool Reports::waitForEvent(std::int32_t code) const {
    return waitFor([this, code] {
        return std::any_of(mEvents.begin(), mEvents.end(),
                           [code](const Event& e) { return e.first == code; });
    });
}

bool Reports::waitForEvents(std::size_t count) const {
    return waitFor([this, count] { return mEvents.size() >= count; });
}

bool Reports::waitForBytes(std::size_t count) const {
    return waitFor([this, count] { return mBytes.size() >= count; });
}

bool Reports::waitForWrites(std::size_t count) const {
    return waitFor([this, count] { return mWrites.size() >= count; });
}

std::int32_t Reports::statusOf(std::int32_t code) const {
    for (const Event& event : events()) {
        if (event.first == code) {
            return event.second;
        }
    }
    return 1;
}

OBufList listOf(const std::string& text) {
    return OBufList(1, OBufView::make(text.data(), text.size()));
}

PipeTest::PipeTest() : prefix(support::uniquePipePrefix()) {
    OStreamPipe::pipeNamePrefix = prefix;
}

PipeTest::~PipeTest() {
    OStreamPipe::pipeNamePrefix.clear();
}
