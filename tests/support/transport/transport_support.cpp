#include "support/transport/transport_support.h"

#include "support/pipe_peer.h"
#include "support/wait.h"
#include "transport/loop_log.h"

#include <algorithm>
#include <csignal>

namespace support {

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

void Reports::attachTo(OBaseSocket& socket) {
    socket.setReadCallback([this](OBaseSocket*, const OBufList& list, std::int32_t) {
        mMonitor.change([&] {
            for (const OBufView& view : list) {
                mBytes.append(reinterpret_cast<const char*>(view.data()),
                              static_cast<std::size_t>(view.length));
            }
        });
    });
    socket.setWriteCallback([this](OBaseSocket*, const OBufList&, std::int32_t status) {
        mMonitor.change([&] { mWrites.push_back(status); });
    });
    socket.setEventCallback([this](OBaseSocket*, std::int32_t code, std::int32_t status) {
        mMonitor.change([&] { mEvents.emplace_back(code, status); });
    });
}

std::vector<Reports::Event> Reports::events() const {
    return mMonitor.read([this] { return mEvents; });
}

std::string Reports::bytes() const {
    return mMonitor.read([this] { return mBytes; });
}

std::vector<std::int32_t> Reports::writes() const {
    return mMonitor.read([this] { return mWrites; });
}

testing::AssertionResult Reports::waitForEvent(std::int32_t code) const {
    return mMonitor.eventually("event " + std::to_string(code), [this, code] {
        return std::any_of(mEvents.begin(), mEvents.end(),
                           [code](const Event& e) { return e.first == code; });
    });
}

testing::AssertionResult Reports::waitForEvents(std::size_t count) const {
    return mMonitor.reaches(count, "events", [this] { return mEvents.size(); });
}

testing::AssertionResult Reports::waitForBytes(std::size_t count) const {
    return mMonitor.reaches(count, "bytes", [this] { return mBytes.size(); });
}

testing::AssertionResult Reports::waitForWrites(std::size_t count) const {
    return mMonitor.reaches(count, "completed writes", [this] { return mWrites.size(); });
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

PipeTest::PipeTest() : prefix(uniquePipePrefix()) {
    OStreamPipe::pipeNamePrefix = prefix;
}

PipeTest::~PipeTest() {
    OStreamPipe::pipeNamePrefix.clear();
}

} // namespace support
