#pragma once
#include "core/ipc/wire/frame.h"
#include "core/ipc/wire/message.h"

namespace ipc {

/// The frame of an INSTANCE_RELEASE: its owner drops `count` holds of `objectId`. The same bytes as the general way through
/// `fn::Value` gives, without a map in between: a death can send very many of them.
FN_EXPORT Frame encodeInstanceRelease(ObjectId objectId, std::uint32_t count);

} // namespace ipc
