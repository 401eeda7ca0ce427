#pragma once
#include "core/ipc/wire/message.h"
#include <fmt/format.h>

namespace ipc {

/// The label of a field code in dumps, "1-TYPE"; an unknown code is the integer itself.
fn::Value fieldLabel(std::int64_t code);

/// The label of a message type in dumps, "4-MESSAGE"; an unknown one (and all above 7) is the integer itself.
fn::Value typeLabel(std::int64_t code);

/// Decodes a payload for a dump, without any worker: shared objects become placeholders that name the object and its owner.
/// Bytes that are no MessagePack value, or hold more than `limits::dumpedValues` values, come back as they are.
fn::Value translatePayload(const fn::Value& payload);

/// Formats a message for a log line, and does so only if a sink wants the line:
/// `FN_LOG_TO(category, 5, ..., "Received\n{}", MessageDebugFormat { message })`. Borrows the message.
struct MessageDebugFormat {
    const fn::Value& message;
    fn::String toString() const;
};

} // namespace ipc

template <> struct fmt::formatter<ipc::MessageDebugFormat> : fmt::formatter<std::string_view> {
    template <typename Context> auto format(const ipc::MessageDebugFormat& dump, Context& context) const
    {
        return fmt::formatter<std::string_view>::format(dump.toString().view(), context);
    }
};
