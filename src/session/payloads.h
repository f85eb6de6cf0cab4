#pragma once

#include "SonviaPCAudioDll.h"
#include "transport/buf_list.h"

/// The payloads of the packets that a session sends. Each function throws std::bad_alloc.
namespace session {

/// The account id of the record.
OBufList accountPayload(const AudioServiceParam& params);

/// The six identity texts of the record, nested under one key.
OBufList koruInfoPayload(const AudioServiceParam& params);

/// Asks the service to end the projection.
OBufList exitProjectionPayload();

/// Asks the service to stop.
OBufList stopServicePayload();

} // namespace session
