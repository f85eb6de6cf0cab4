#include "protocol/aes128.h"

namespace {

const Aes128Implementation& chooseImplementation() {
    const Aes128Implementation* instructions = aes128Instructions();
    return instructions != nullptr ? *instructions : aes128Portable();
}

} // namespace

const Aes128Implementation& aes128() {
    static const Aes128Implementation& implementation = chooseImplementation();
    return implementation;
}
