#include "support/cuts.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace {

constexpr std::uint8_t kUncut = 0;
constexpr std::uint8_t kEveryByte = 1;

/// A few bytes mostly: headers and lengths are to be torn apart.
constexpr std::size_t kPieceLimits[] = {2, 4, 12, 40, 5000, 20000};
/// Work grows with the square of the pieces; after this many, the rest comes in a few large ones.
constexpr std::size_t kManyPieces = 24;
constexpr std::size_t kSparse = 8;
constexpr std::size_t kSpareFactors[] = {0, 0, 1, kSparse};

class Cutter {
public:
    Cutter(const oracle::Bytes& bytes, std::uint8_t seed)
        : mBytes(bytes), mSeed(seed), mRandom(seed),
          mLimit(kPieceLimits[mRandom() % std::size(kPieceLimits)]), mAllSparse(mRandom() % 4 == 0) {}

    bool done() const { return mAt == mBytes.size(); }

    OBufView nextPiece() {
        const std::size_t left = mBytes.size() - mAt;
        std::size_t length = left;
        std::size_t before = 0;
        std::size_t behind = 0;
        if (mSeed == kEveryByte) {
            length = 1;
        } else if (mSeed != kUncut) {
            length = std::min<std::size_t>(left, 1 + mRandom() % mLimit);
            behind = length * (mAllSparse ? kSparse : kSpareFactors[mRandom() % std::size(kSpareFactors)]);
            before = mRandom() % 4 == 0 ? 3 : 0;
        }
        if (++mPieces > kManyPieces) {
            length = std::max(length, left / 8);
        }
        OBufView piece;
        piece.reset(before + length + behind);
        piece.offset = before;
        piece.length = length;
        if (length != 0) {
            std::memcpy(piece.data(), mBytes.data() + mAt, length);
        }
        mAt += length;
        return piece;
    }

    bool chunkEnds() { return mSeed == kEveryByte || mRandom() % 3 != 0; }

private:
    const oracle::Bytes& mBytes;
    const std::uint8_t mSeed;
    std::minstd_rand mRandom;
    const std::size_t mLimit;
    const bool mAllSparse; ///< what is kept of such pieces is copied together
    std::size_t mAt = 0;
    std::size_t mPieces = 0;
};

} // namespace

std::vector<OBufList> cutIntoChunks(const oracle::Bytes& stream, std::uint8_t seed) {
    Cutter cutter(stream, seed);
    std::vector<OBufList> chunks;
    bool ended = true;
    while (!cutter.done()) {
        if (ended) {
            chunks.emplace_back();
        }
        chunks.back().push_back(cutter.nextPiece());
        ended = cutter.chunkEnds();
    }
    return chunks;
}

OBufList cutIntoPieces(const oracle::Bytes& bytes, std::uint8_t seed) {
    Cutter cutter(bytes, seed);
    OBufList chunk;
    while (!cutter.done()) {
        chunk.push_back(cutter.nextPiece());
    }
    return chunk;
}
