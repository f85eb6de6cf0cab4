#include "hex.h"

#include <stdexcept>

namespace inspect {

namespace {

int digitOf(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

} // namespace

std::string hexOf(const oracle::Bytes& bytes, std::string_view separator) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * (2 + separator.size()));
    for (const std::uint8_t byte : bytes) {
        hex.append(hex.empty() ? "" : separator);
        hex.push_back(kDigits[byte >> 4U]);
        hex.push_back(kDigits[byte & 0x0FU]);
    }
    return hex;
}

oracle::Bytes bytesOfHex(std::string_view hex) {
    oracle::Bytes bytes;
    bytes.reserve(hex.size() / 2);
    int high = -1; // the first digit of a pair
    for (const char c : hex) {
        const int digit = digitOf(c);
        if (digit < 0 && !(isSpace(c) && high < 0)) {
            throw std::invalid_argument("pairs of hexadecimal digits");
        }
        if (digit < 0) {
            continue;
        }
        if (high >= 0) {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
        }
        high = high < 0 ? digit : -1;
    }
    if (high >= 0) {
        throw std::invalid_argument("pairs of hexadecimal digits");
    }
    return bytes;
}

} // namespace inspect
