#include "api/log_output.h"
#include "foundation/logging/category_manager.h"
#include "foundation/logging/console_sink.h"
#include "foundation/system/environment.h"

namespace media {
namespace {

// By the environment, since that reaches a process before its first message.
constexpr auto variable = "SKYFOLD_LOG";

void show(int priority)
{
    fn::logging::CategoryManager::instance().addSink(fn::makeAuto<fn::logging::ConsoleSink>(priority));
}

} // namespace

void chooseLogOutput(int priority)
{
    fn::Environment::set(variable, fn::String::number(priority));
    show(priority);
}

void adoptLogOutput()
{
    if (const auto priority = fn::Environment::get(variable)) show(priority->toInt(fn::logging::Warning));
}

} // namespace media
