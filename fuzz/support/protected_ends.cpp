#include "support/protected_ends.h"

#include <span>

namespace {

constexpr oracle::Block kKey = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr oracle::Block kStart = {16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1};

constexpr std::uint8_t kEncrypt = 1;
constexpr std::uint8_t kPad = 2;
constexpr std::uint8_t kIntegrity = 4;
constexpr std::uint8_t kKnownAlgorithm = 8;

} // namespace

std::shared_ptr<SafetyDataDeal> makeContext(std::uint8_t choice) {
    using Given = std::span<const std::uint8_t, kAesBlockSize>;
    auto context = SafetyDataDeal::create(Given(kKey), Given(kStart), Given(kStart));
    context->mEncryptOn = (choice & kEncrypt) != 0;
    context->mBlockPad = (choice & kPad) != 0;
    context->mIntegrityOn = (choice & kIntegrity) != 0;
    context->mIntegrityType = (choice & kKnownAlgorithm) != 0 ? 1 : 2;
    return context;
}

oracle::Protection makeProtection(std::uint8_t choice) {
    static const oracle::Protection kFresh(kKey, kStart, kStart);
    oracle::Protection protection = kFresh;
    protection.settings = {(choice & kEncrypt) != 0, (choice & kPad) != 0, (choice & kIntegrity) != 0,
                           (choice & kKnownAlgorithm) != 0};
    return protection;
}
