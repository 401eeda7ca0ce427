#include "witness.h"
#include "foundation/logging/category_manager.h"
#include <fmt/format.h>

namespace simulated {
namespace {

Witness* theWitness = nullptr;

class LogSink final : public fn::logging::Sink {
    int threshold(const fn::logging::Category&) const override { return 4; }
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override
    {
        const auto line = fmt::format("{}: {}", category.name(), message.text);
        tell({ .deed = Deed::Logs, .number = message.priority, .text = line });
    }
};

} // namespace

Witness::Witness() noexcept { theWitness = this; }
Witness::~Witness()
{
    if (_logSink) fn::logging::CategoryManager::instance().removeSink(_logSink);
    theWitness = nullptr;
}

Witness& Witness::current() noexcept { return *theWitness; }

void Witness::hearLog()
{
    _logSink = fn::makeAuto<LogSink>();
    fn::logging::CategoryManager::instance().addSink(_logSink);
}

} // namespace simulated
