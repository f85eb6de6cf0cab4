// How a scenario sends: whole, byte by byte, or several packets joined in one write.

#include "player.h"

#include <utility>

namespace standin {

namespace {

constexpr std::size_t kUnwrittenLimit = 1U << 20U;

} // namespace

// A send waits for the first connection. After the peer has gone, sends are dropped: a flood must not hang.
bool Player::readyToSend() {
    if (!mPipe.connected() && !mHadConnection) {
        return false;
    }
    return mPipe.unwritten() < kUnwrittenLimit;
}

bool Player::sendOut(oracle::Bytes bytes) {
    if (mJoining) {
        oracle::append(mJoined, bytes);
        return true;
    }
    witnessSent(bytes);
    if (!mPace) {
        mPipe.write(oracle::text(bytes));
        return true;
    }
    mTrickle = std::move(bytes);
    mTrickled = 0;
    return trickle();
}

void Player::witnessSent(const oracle::Bytes& bytes) {
    mShow.sent(bytes, currentLine(), !mPipe.connected());
    if (!mOptions.recordSent || !mPipe.connected()) {
        return;
    }
    oracle::Bytes rest = bytes;
    for (const oracle::Packet& packet : oracle::takePackets(rest)) {
        mRecord.write(packetLine(packet, From::Service));
    }
    if (!rest.empty()) {
        mRecord.write(bytesLine(rest, From::Service));
    }
}

// Writes the next byte by itself once the one before it has left and the pace allows it.
bool Player::trickle() {
    if (mTrickled < mTrickle.size() && !mPipe.connected()) {
        mTrickled = mTrickle.size();
    }
    if (mTrickled < mTrickle.size() && mPipe.unwritten() == 0 && uv_now(mLoop) >= mNextByteTime) {
        mPipe.write(oracle::text({mTrickle[mTrickled++]}));
        mNextByteTime = uv_now(mLoop) + static_cast<std::uint64_t>(*mPace);
    }
    if (mTrickled < mTrickle.size()) {
        return false;
    }
    mTrickle.clear();
    mTrickled = 0;
    return true;
}

bool Player::perform(const SendPacket& step) {
    return readyToSend() && sendOut(encodePacket(step.packet, ++mSequence, mCounters));
}

bool Player::perform(const SendBytes& step) {
    return readyToSend() && sendOut(step.bytes);
}

bool Player::perform(const SendFill& step) {
    return readyToSend() &&
           sendOut(oracle::Bytes(static_cast<std::size_t>(step.count.value(mCounters)), step.byte));
}

bool Player::perform(const Flush& /*step*/) {
    return mPipe.unwritten() == 0;
}

bool Player::perform(const SplitBegin& step) {
    mPace = step.pace.value(mCounters);
    mNextByteTime = 0;
    return true;
}

bool Player::perform(const SplitEnd& /*step*/) {
    mPace.reset();
    return true;
}

bool Player::perform(const JoinBegin& /*step*/) {
    mJoining = true;
    return true;
}

bool Player::perform(const JoinEnd& /*step*/) {
    if (!readyToSend()) {
        return false;
    }
    mJoining = false;
    return sendOut(std::exchange(mJoined, {}));
}

} // namespace standin
