#include "replay.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>
#include <uv.h>

#include "items.h"
#include "peer.h"
#include "views.h"

namespace inspect {

namespace {

const char* otherName(Side side) {
    return nameOf(side == Side::Host ? Side::Service : Side::Host);
}

Item itemOf(const oracle::Packet& packet) {
    Item item;
    item.isPacket = true;
    item.packet = packet;
    item.bytes = oracle::encodePacket(packet.command, packet.sequence, packet.payload, packet.magic);
    return item;
}

/// Where the bytes part, and how.
std::string firstDifference(const oracle::Bytes& recorded, const oracle::Bytes& came) {
    const auto parting = std::mismatch(recorded.begin(), recorded.end(), came.begin(), came.end());
    const auto at = static_cast<std::size_t>(parting.first - recorded.begin());
    const auto byteOf = [&](const oracle::Bytes& bytes) {
        return at < bytes.size() ? fmt::format("{:02x}", bytes[at]) : "the packet's end";
    };
    return fmt::format("byte {}: recorded {}, came {}", at, byteOf(recorded), byteOf(came));
}

/// A host that was started for the replay.
class Program {
public:
    explicit Program(uv_loop_t* loop) : mLoop(loop) {}

    void start(const ReplayOptions& options) {
        // The stand-in that the library starts must leave the pipe alone.
        uv_os_setenv("SONVIA_STANDIN_PIPE", (options.pipe + ".unused").c_str());
        std::vector<std::string> words = {options.program};
        words.insert(words.end(), options.arguments.begin(), options.arguments.end());
        std::vector<char*> pointers;
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        uv_stdio_container_t streams[3] = {};
        for (uv_stdio_container_t* output : {&streams[1], &streams[2]}) {
            output->flags = UV_INHERIT_FD;
            output->data.fd = 2; // standard output is for the result
        }
        uv_process_options_t process = {};
        process.file = options.program.c_str();
        process.args = pointers.data();
        process.stdio = streams;
        process.stdio_count = 3;
        process.exit_cb = [](uv_process_t* ended, std::int64_t, int) {
            static_cast<Program*>(ended->data)->mRunning = false;
            uv_close(reinterpret_cast<uv_handle_t*>(ended), nullptr);
        };
        mProcess.data = this;
        const int result = uv_spawn(mLoop, &mProcess, &process);
        if (result != 0) {
            throw InputError(fmt::format("cannot start {}: {}", options.program, uv_strerror(result)));
        }
        mRunning = true;
    }

    bool running() const { return mRunning; }

    void kill() {
        if (mRunning) {
            uv_process_kill(&mProcess, SIGTERM);
        }
    }

private:
    uv_loop_t* mLoop;
    uv_process_t mProcess{};
    bool mRunning = false;
};

/// Walks over the capture. What happens on the pipe is only taken note of inside libuv's callbacks; every step is made
/// outside of them, where an exception may pass.
class Replay {
public:
    Replay(CaptureReader& reader, const ReplayOptions& options)
        : mReader(reader), mItems(reader), mOptions(options) {
        uv_loop_init(&mLoop);
        uv_timer_init(&mLoop, &mTimer);
        mPeer = options.side == Side::Service ? servingPeer(&mLoop, options.pipe)
                                              : connectingPeer(&mLoop, options.pipe);
    }

    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    ~Replay() {
        mProgram.kill();
        mPeer->close();
        uv_walk(
            &mLoop,
            [](uv_handle_t* handle, void*) {
                if (uv_is_closing(handle) == 0 && handle->type != UV_PROCESS) {
                    uv_close(handle, nullptr);
                }
            },
            nullptr);
        uv_run(&mLoop, UV_RUN_DEFAULT);
        uv_loop_close(&mLoop);
    }

    std::string run() {
        mPeer->start();
        if (!mOptions.program.empty()) {
            mProgram.start(mOptions);
        }
        while (!mResult) {
            uv_update_time(&mLoop);
            if (step()) {
                mWaitingSince.reset();
            } else if (!mResult) {
                uv_run(&mLoop, UV_RUN_ONCE);
            }
        }
        letProgramEnd();
        return *mResult;
    }

private:
    /// Makes one step. False when it cannot be made yet, for which the timer is set, or when the result is known.
    bool step() {
        if (!mItem) {
            mItem.emplace();
            if (!mItems.next(*mItem)) {
                mResult = "";
                return false;
            }
        }
        const bool done = !mItem->mark.empty()           ? !endsConnection(mItem->mark) || endConnection()
                          : mItem->from == mOptions.side ? play()
                                                         : compare();
        if (done) {
            mItem.reset();
        }
        return done;
    }

    bool play() {
        if (!connected()) {
            return false;
        }
        if (mOptions.speed > 0) {
            mFirst = mFirst ? mFirst : Moment{mItem->at, uv_now(&mLoop)};
            const double due = static_cast<double>(mItem->at - mFirst->recorded) / 1000 / mOptions.speed;
            const auto passed = static_cast<double>(uv_now(&mLoop) - mFirst->now);
            if (passed < due) {
                mWaitingSince.reset();
                wakeIn(static_cast<std::uint64_t>(due - passed) + 1);
                return false;
            }
        }
        mPeer->send(mItem->bytes);
        return true;
    }

    bool compare() {
        if (!mItem->isPacket) { // where the pieces of a broken stream are cut is chance
            return true;
        }
        const std::optional<oracle::Packet> came = mPeer->take();
        if (!came) {
            return connected() && waitOr(fmt::format("nothing came in {} ms", mOptions.patienceMs));
        }
        mFirst = mFirst ? mFirst : Moment{mItem->at, uv_now(&mLoop)};
        oracle::Packet masked = *came;
        masked.payload = oracle::masked(came->payload);
        const bool same =
            itemOf(*came).bytes == mItem->bytes || (mReader.masked() && itemOf(masked).bytes == mItem->bytes);
        if (!same) {
            const Item other = itemOf(mReader.masked() ? masked : *came);
            differ(fmt::format("the {} sent another packet", nameOf(mItem->from)),
                   fmt::format("\n  came:     {}\n  {}", summaryOf(other),
                               firstDifference(mItem->bytes, other.bytes)));
        }
        return same;
    }

    /// What the other end still sends, it sends before it ends the connection.
    bool endConnection() {
        if (const std::optional<oracle::Packet> more = mPeer->take()) {
            differ(fmt::format("the {} sent more", otherName(mOptions.side)),
                   fmt::format("\n  came:     {}", summaryOf(itemOf(*more))));
            return false;
        }
        if (mPeer->connected() && !patienceIsOver()) {
            return false;
        }
        mPeer->disconnect();
        return true;
    }

    /// A host that is killed would leave its service behind.
    void letProgramEnd() {
        mPeer->disconnect();
        for (mWaitingSince.reset(); mProgram.running() && !patienceIsOver(); uv_update_time(&mLoop)) {
            uv_run(&mLoop, UV_RUN_ONCE);
        }
    }

    /// Whether there is a connection; without one, makes it or waits for it.
    bool connected() {
        if (mPeer->connected()) {
            return true;
        }
        if (!mPeer->ended().empty()) {
            differ(mPeer->ended());
            return false;
        }
        mPeer->start();
        return waitOr(fmt::format("no connection on {} in {} ms", mOptions.pipe, mOptions.patienceMs));
    }

    /// Always false.
    bool waitOr(const std::string& what) {
        if (patienceIsOver()) {
            differ(what);
        }
        return false;
    }

    /// Whether the step has waited for the other end as long as it may; if not, the timer is set to that moment.
    bool patienceIsOver() {
        mWaitingSince = mWaitingSince ? mWaitingSince : uv_now(&mLoop);
        const std::uint64_t waited = uv_now(&mLoop) - *mWaitingSince;
        if (waited >= mOptions.patienceMs) {
            return true;
        }
        wakeIn(mOptions.patienceMs - waited);
        return false;
    }

    void wakeIn(std::uint64_t milliseconds) {
        uv_timer_start(
            &mTimer, [](uv_timer_t*) {}, milliseconds, 0);
    }

    void differ(const std::string& how, const std::string& what = "") {
        mResult = fmt::format("{}:{}: {}{}{}", mReader.name(), mItem->line, how,
                              mItem->mark.empty() ? "\n  recorded: " + summaryOf(*mItem) : "", what);
    }

    struct Moment {
        std::int64_t recorded; ///< microseconds of the capture
        std::uint64_t now;     ///< milliseconds of the loop
    };

    uv_loop_t mLoop{};
    uv_timer_t mTimer{};
    CaptureReader& mReader;
    ItemReader mItems;
    const ReplayOptions& mOptions;
    Program mProgram{&mLoop};
    std::unique_ptr<Peer> mPeer;
    std::optional<Item> mItem; ///< the next one, until it is done with
    std::optional<Moment> mFirst;
    std::optional<std::uint64_t> mWaitingSince;
    std::optional<std::string> mResult;
};

} // namespace

std::string replay(CaptureReader& reader, const ReplayOptions& options) {
    return Replay(reader, options).run();
}

} // namespace inspect
