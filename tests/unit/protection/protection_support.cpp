#include "unit/protection/protection_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

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

/// Takes away what differs from run to run: the thread in front, the source line, a carriage return.
std::string comparable(std::string line) {
    line.erase(0, std::min(line.size(), line.find("] ") + 2));
    const std::size_t start = line.find(": [");
    const std::size_t end = line.find(']', start);
    const std::size_t colon = line.rfind(':', end);
    if (start != std::string::npos && end != std::string::npos && colon > start) {
        line.replace(colon + 1, end - colon - 1, "line");
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
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

LogCapture::LogCapture() {
    testing::internal::CaptureStdout();
}

LogCapture::~LogCapture() {
    if (mActive) {
        testing::internal::GetCapturedStdout();
    }
}

std::vector<std::string> LogCapture::lines() {
    mActive = false;
    std::istringstream text(testing::internal::GetCapturedStdout());
    std::vector<std::string> found;
    for (std::string line; std::getline(text, line);) {
        found.push_back(comparable(line));
    }
    return found;
}
