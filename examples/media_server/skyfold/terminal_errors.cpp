#include "skyfold/terminal_errors.h"
#include "api/text.h"
#include "core/services/console_log_post_processor.h"
#include <unistd.h>

namespace media {
namespace {

constexpr auto drainTime = fn::Duration::seconds(1);

void clearBar(fn::String& line) { line = eraseLine + line; }

} // namespace

TerminalErrors::TerminalErrors() : _isActive(isTerminal(STDOUT_FILENO) && isTerminal(STDERR_FILENO))
{
    if (!_isActive) return;
    core::ConsoleLogPostProcessor::registerStandardErrorCallback(clearBar);
    core::ConsoleLogPostProcessor::init();
}

TerminalErrors::~TerminalErrors()
{
    if (_isActive) core::ConsoleLogPostProcessor::quit(drainTime);
}

} // namespace media
