#include "core/services/logging_profile/simple_sink.h"
#include "foundation/assertion.h"

namespace core {

SimpleSink::SimpleSink(fn::AutoPtr<fn::LogTarget> target) : _target(std::move(target))
{
    (void)FN_ASSERT(_target, fn::sites::simpleSinkHasTarget);
}

SimpleSink::~SimpleSink() = default;

void SimpleSink::logMessage(const fn::logging::Category&, const fn::logging::Message& message)
{
    std::string entry;
    entry.reserve(message.text.size() + 2);
    for (const char byte : message.text.view()) {
        if (byte == '\n') entry += '\r';
        entry += byte;
    }
    entry += "\r\n";
    _target->write(entry);
}

} // namespace core
