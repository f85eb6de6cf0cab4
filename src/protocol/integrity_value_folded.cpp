#include "protocol/integrity_value.h"

#include "protocol/cpu_features.h"
#include "protocol/integrity_tables.h"

#include <immintrin.h>

// The data is one long polynomial, its first bit the highest power. A lane holds 128 bits of it, that is two
// halves H·x^64 + L. Moving a lane d bits towards the end of the data multiplies it by x^d, and modulo the
// polynomial P
//
//     (H·x^64 + L)·x^d  =  H·(x^(d+64) mod P)  +  L·(x^d mod P)
//
// where each product fits into 128 bits again. So four lanes run through the data 64 bytes at a time, are
// joined into one, and the sixteen bytes that remain have the same remainder as all the data before them.

namespace {

constexpr std::size_t kLaneBytes = 16;
constexpr std::size_t kLanes = 4;
constexpr std::size_t kStrideBytes = kLanes * kLaneBytes;

/// x^power mod P.
constexpr std::uint32_t powerOfX(unsigned power) {
    std::uint32_t remainder = 1;
    for (unsigned step = 0; step < power; ++step) {
        const bool carry = (remainder & 0x80000000U) != 0;
        remainder = remainder << 1 ^ (carry ? kIntegrityPolynomial : 0);
    }
    return remainder;
}

constexpr unsigned kStrideBits = 8 * kStrideBytes;
constexpr unsigned kLaneBits = 8 * kLaneBytes;
constexpr std::uint32_t kStrideHigh = powerOfX(kStrideBits + 64);
constexpr std::uint32_t kStrideLow = powerOfX(kStrideBits);
constexpr std::uint32_t kLaneHigh = powerOfX(kLaneBits + 64);
constexpr std::uint32_t kLaneLow = powerOfX(kLaneBits);

/// The first byte of the data carries the highest powers, the first byte of a register the lowest.
SONVIA_TARGET("ssse3") inline __m128i reverseBytes(__m128i lane) {
    const __m128i order = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    return _mm_shuffle_epi8(lane, order);
}

SONVIA_TARGET("ssse3") inline __m128i loadLane(const std::uint8_t* data) {
    return reverseBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)));
}

/// `lane` moved on by the distance of `factors`, plus the data that is there.
SONVIA_TARGET("pclmul,ssse3") inline __m128i fold(__m128i lane, __m128i factors, __m128i data) {
    const __m128i high = _mm_clmulepi64_si128(lane, factors, 0x11);
    const __m128i low = _mm_clmulepi64_si128(lane, factors, 0x00);
    return _mm_xor_si128(_mm_xor_si128(high, low), data);
}

/// The remainder of `data`, `size` bytes and at least one stride, as sixteen bytes; advances both over what
/// it used.
SONVIA_TARGET("pclmul,ssse3")

__m128i foldAll(const std::uint8_t*& data, std::size_t& size) {
    const __m128i start = _mm_set_epi32(static_cast<int>(kIntegrityStart), 0, 0, 0);
    __m128i lane0 = _mm_xor_si128(loadLane(data), start);
    __m128i lane1 = loadLane(data + kLaneBytes);
    __m128i lane2 = loadLane(data + 2 * kLaneBytes);
    __m128i lane3 = loadLane(data + 3 * kLaneBytes);
    const __m128i stride = _mm_set_epi64x(kStrideHigh, kStrideLow);
    for (data += kStrideBytes, size -= kStrideBytes; size >= kStrideBytes;
         data += kStrideBytes, size -= kStrideBytes) {
        lane0 = fold(lane0, stride, loadLane(data));
        lane1 = fold(lane1, stride, loadLane(data + kLaneBytes));
        lane2 = fold(lane2, stride, loadLane(data + 2 * kLaneBytes));
        lane3 = fold(lane3, stride, loadLane(data + 3 * kLaneBytes));
    }
    const __m128i single = _mm_set_epi64x(kLaneHigh, kLaneLow);
    __m128i rest = fold(fold(fold(lane0, single, lane1), single, lane2), single, lane3);
    for (; size >= kLaneBytes; data += kLaneBytes, size -= kLaneBytes) {
        rest = fold(rest, single, loadLane(data));
    }
    return reverseBytes(rest);
}

SONVIA_TARGET("pclmul,ssse3") std::uint32_t valueByFolding(const std::uint8_t* data, std::size_t size) {
    if (size < kStrideBytes) {
        return integrityValueSliced(data, size);
    }
    alignas(kLaneBytes) std::uint8_t remainder[kLaneBytes];
    _mm_store_si128(reinterpret_cast<__m128i*>(remainder), foldAll(data, size));
    const std::uint32_t value = continueIntegritySliced(0, remainder, kLaneBytes);
    return continueIntegritySliced(value, data, size);
}

} // namespace

IntegrityCode integrityValueFolded() {
    const CpuFeatures& features = cpuFeatures();
    return features.carrylessMultiply && features.ssse3 ? valueByFolding : nullptr;
}
