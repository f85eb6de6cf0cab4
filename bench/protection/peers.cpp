#include "peers.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

void require(int answer) {
    if (answer != 1) {
        std::fprintf(stderr, "OpenSSL refused an operation\n");
        std::exit(2);
    }
}

std::array<std::uint32_t, 256> makeByteTable() {
    std::array<std::uint32_t, 256> table = {};
    for (std::uint32_t index = 0; index < table.size(); ++index) {
        std::uint32_t value = index << 24;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 0x80000000U) != 0 ? value << 1 ^ 0x04C11DB7U : value << 1;
        }
        table[index] = value << 24 | (value & 0xFF00U) << 8 | (value >> 8 & 0xFF00U) | value >> 24;
    }
    return table;
}

const std::array<std::uint32_t, 256> kByteTable = makeByteTable();

} // namespace

void OpenSslCbc::Release::operator()(evp_cipher_ctx_st* cipher) const {
    EVP_CIPHER_CTX_free(cipher);
}

OpenSslCbc::OpenSslCbc(const std::uint8_t* key, const std::uint8_t* iv, bool encrypting)
    : mCipher(EVP_CIPHER_CTX_new()) {
    require(EVP_CipherInit_ex(mCipher.get(), EVP_aes_128_cbc(), nullptr, key, iv, encrypting ? 1 : 0));
    require(EVP_CIPHER_CTX_set_padding(mCipher.get(), 0));
}

void OpenSslCbc::update(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    int written = 0;
    require(EVP_CipherUpdate(mCipher.get(), out, &written, in, static_cast<int>(size)));
}

void OpenSslCbc::message(const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                         std::size_t size) {
    int written = 0;
    int finished = 0;
    require(EVP_CipherInit_ex(mCipher.get(), nullptr, nullptr, nullptr, iv, -1));
    require(EVP_CipherUpdate(mCipher.get(), out, &written, in, static_cast<int>(size)));
    require(EVP_CipherFinal_ex(mCipher.get(), out + written, &finished));
}

void openSslWholeMessage(const std::uint8_t* key, const std::uint8_t* iv, bool encrypting,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    OpenSslCbc cipher(key, iv, encrypting);
    cipher.message(iv, in, out, size);
}

std::uint32_t zlibCrc32(const std::uint8_t* data, std::size_t size) {
    return static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(size)));
}

std::uint32_t byteTableIntegrity(const std::uint8_t* data, std::size_t size) {
    std::uint32_t value = 0xFFFFFFFFU;
    for (std::size_t index = 0; index < size; ++index) {
        value = kByteTable[(value ^ data[index]) & 0xFFU] ^ value >> 8;
    }
    return value;
}
