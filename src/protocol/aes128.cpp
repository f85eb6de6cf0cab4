#include "protocol/aes128.h"

namespace {

const Aes128Code& chooseCode() {
    const Aes128Code* instructions = aes128Instructions();
    return instructions != nullptr ? *instructions : aes128Portable();
}

} // namespace

const Aes128Code& aes128() {
    static const Aes128Code& code = chooseCode();
    return code;
}
