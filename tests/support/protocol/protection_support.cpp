#include "support/protocol/protection_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace support {

namespace {

std::shared_ptr<SafetyDataDeal> makeContext(ProtectionFlags flags, const AesBlock& encryptIv,
                                            const AesBlock& decryptIv) {
    auto context = SafetyDataDeal::create(kTestKey, encryptIv, decryptIv);
    context->mEncryptOn = flags.encrypt;
    context->mBlockPad = flags.pad;
    context->mIntegrityOn = flags.integrity;
    return context;
}

Outcome collect(bool ok, std::uint8_t* buffer, std::size_t size) {
    Outcome outcome;
    outcome.ok = ok;
    outcome.hasBuffer = buffer != nullptr;
    if (buffer != nullptr) {
        outcome.data.assign(buffer, buffer + size);
    } else {
        EXPECT_EQ(size, 0U);
    }
    std::free(buffer);
    return outcome;
}

/// Outputs start as rubbish: every call has to clear them.
std::uint8_t* rubbishPointer() {
    static std::uint8_t rubbish = 0;
    return &rubbish;
}

} // namespace

Bytes fromHex(std::string_view digits) {
    Bytes bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit == ' ') {
            continue;
        }
        pair += digit;
        if (pair.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return bytes;
}

Bytes textBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes randomBytes(std::mt19937& random, std::size_t size) {
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    return bytes;
}

std::vector<ProtectionFlags> everyFlagCombination() {
    std::vector<ProtectionFlags> all;
    for (unsigned bits = 0; bits < 8; ++bits) {
        all.push_back({(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0});
    }
    return all;
}

std::shared_ptr<SafetyDataDeal> nearContext(ProtectionFlags flags) {
    return makeContext(flags, kNearIv, kFarIv);
}

std::shared_ptr<SafetyDataDeal> farContext(ProtectionFlags flags) {
    return makeContext(flags, kFarIv, kNearIv);
}

Outcome encrypt(SafetyDataDeal& context, const Bytes& payload) {
    std::uint8_t* buffer = rubbishPointer();
    std::size_t size = 77;
    const bool ok = context.encryptData(payload.data(), payload.size(), &buffer, &size);
    return collect(ok, buffer, size);
}

Outcome decrypt(SafetyDataDeal& context, const Bytes& message) {
    std::uint8_t* buffer = rubbishPointer();
    std::size_t size = 77;
    const bool ok = context.decryptData(message.data(), message.size(), &buffer, &size);
    return collect(ok, buffer, size);
}

std::string shownAddress(const void* address) {
    std::ostringstream text;
    text << "0x" << std::hex << static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
    return text.str();
}

} // namespace support
