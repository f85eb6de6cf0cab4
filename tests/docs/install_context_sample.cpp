#include "protocol/ctrl_protocol.h"
#include "protocol/safety_data_deal.h"

#include <array>
#include <cstdint>

using Block = std::array<std::uint8_t, 16>;

/// Both programs agree on a key and on two initial blocks, one for each direction. Each installs a context before the
/// first packet; what is `toPeer` here is `fromPeer` there.
void protectConnection(CtrlProtocol& protocol, const Block& key, const Block& toPeer, const Block& fromPeer) {
    const auto context = SafetyDataDeal::create(key, toPeer, fromPeer);
    context->mEncryptOn = true;
    context->mBlockPad = true;
    context->mIntegrityOn = true;
    protocol.setSafetyDataDeal(context);
}
