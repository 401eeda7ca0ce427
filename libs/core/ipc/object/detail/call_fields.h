#pragma once
#include "core/ipc/object/detail/call_message.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/object/payload_writer.h"
#include "foundation/work_context.h"
#include <cstdint>
#include <string_view>

namespace ipc {

/// A message of callable objects without its argument or result.
struct CallHead {
    enum class Kind : std::uint8_t { Call, Response, Event };

    Kind kind;
    std::uint32_t requestId = NO_REQUEST_ID; ///< Not of events.
    // GCC warns where a field without an initializer is left out. NOLINTNEXTLINE(readability-redundant-member-init)
    std::string_view name = {}; ///< Of the method or the event: lives as long as the program. None of responses.
    fn::Duration timeLeft = fn::Duration::seconds(0); ///< Of calls; 0 without a limit.
    std::uint64_t traceId = 0; ///< Of calls; 0 without a trace.

    bool hasLimit() const { return timeLeft > fn::Duration(); }
    std::string_view type() const;
    void write(
        PayloadWriter& writer, PayloadSource content) const; ///< The whole message; `content`: argument or result.
    fn::Value toMessage(fn::Value content) const;

private:
    void writeCall(PayloadWriter& writer, PayloadSource argument) const;
};

/// What callable objects send each other: a call, its end, an event. Finds the fields of the map where the payload lies. A message that has
/// not left its worker is no map, but a head and the bytes of its argument or result.
class CallFields {
public:
    /// Throws for malformed bytes. A payload that is no map has no fields.
    explicit CallFields(PayloadReader& payload);
    CallFields(const CallHead& head, PayloadReader& content) : _payload(content), _head(&head), _type(head.type()) { }

    bool is(std::string_view type) const { return _type == type; }

    fn::WorkContext workContext() const; ///< With the time that the caller has left, and its trace.

    // Missing ones: NO_REQUEST_ID, and `fn::RangeException`.
    std::uint32_t requestId() const;
    std::string_view methodName() const { return text(_methodName, call::METHOD_NAME); }
    std::string_view eventName() const { return text(_eventName, call::EVENT_NAME); }

    // The reader, at the value of that field; at a nil if it is missing.
    PayloadReader& argument() const { return at(_argument); }
    PayloadReader& result() const { return at(_result); }
    PayloadReader& error() const { return at(_error); }

private:
    std::uint32_t pass(std::uint32_t& place); // Notes where the value is, and passes it: 1 entry.
    std::uint32_t passType();
    std::uint32_t* placeOf(std::string_view key);
    PayloadReader& at(std::uint32_t offset) const;
    std::string_view text(std::uint32_t offset, std::string_view key) const;

    PayloadReader& _payload;
    const CallHead* const _head = nullptr; // Null if the payload is a map.
    std::string_view _type;
    // Offsets of values; 0 for those that are missing, since there the map begins.
    std::uint32_t _argument = 0;
    std::uint32_t _error = 0;
    std::uint32_t _eventName = 0;
    std::uint32_t _methodName = 0;
    std::uint32_t _requestId = 0;
    std::uint32_t _result = 0;
    std::uint32_t _timeLeft = 0;
    std::uint32_t _trace = 0;
};

} // namespace ipc
