#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct evp_cipher_ctx_st;

using Bytes = std::vector<std::uint8_t>;

/// One direction of AES-128-CBC in OpenSSL, key expanded once, padding off. Ends the program when OpenSSL
/// fails.
class OpenSslCbc {
public:
    OpenSslCbc(const std::uint8_t* key, const std::uint8_t* iv, bool encrypting);

    /// Continues the chain of the previous call: the least work for OpenSSL.
    void update(const std::uint8_t* in, std::uint8_t* out, std::size_t size);

    /// A message of its own: starts at `iv`, and is finished.
    void message(const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out, std::size_t size);

private:
    struct Release {
        void operator()(evp_cipher_ctx_st* cipher) const;
    };

    std::unique_ptr<evp_cipher_ctx_st, Release> mCipher;
};

/// A message of its own with a cipher object of its own, as a program that keeps nothing between messages
/// does it.
void openSslWholeMessage(const std::uint8_t* key, const std::uint8_t* iv, bool encrypting,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t size);

std::uint32_t zlibCrc32(const std::uint8_t* data, std::size_t size);

/// The integrity value by its definition: one look-up for each byte.
std::uint32_t byteTableIntegrity(const std::uint8_t* data, std::size_t size);
