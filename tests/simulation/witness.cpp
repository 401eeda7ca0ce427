#include "witness.h"
#include "core/ipc/module_manager/module_manager.h"
#include "foundation/logging/category_manager.h"
#include "journal.h"
#include <fmt/format.h>

namespace simulated {
namespace {

Witness* theWitness = nullptr;

class LogSink final : public fn::logging::Sink {
    int threshold(const fn::logging::Category& category) const override
    {
        return category.name() == "ipc.moduleManager" ? 5 : 4;
    }
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

Witness& Witness::current()
{
    if (!theWitness) new Journal(program_invocation_short_name); // The loader sets it. It stays as long as the process.
    return *theWitness;
}

void Witness::hearLog()
{
    _logSink = fn::makeAuto<LogSink>();
    fn::logging::CategoryManager::instance().addSink(_logSink);
}

void listenTo(ipc::ModuleManager& manager)
{
    const auto tellAs = [](Deed deed) {
        return [deed](const fn::String& text) { tell({ .deed = deed, .text = text.view() }); };
    };
    manager.onFatalError().connect(tellAs(Deed::GivesUp)).detach();
    manager.onModuleNotResponding().connect(tellAs(Deed::FindsSilent)).detach();
}

} // namespace simulated
