#include "platform/com/elevation_prompt.h"
#include "platform/com/detail/elevation.h"
#include <cstdio>
#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex promptLock;

ElevationPrompt& installedPrompt() // Empty: none. Guarded by `promptLock`.
{
    static auto& prompt = *new ElevationPrompt;
    return prompt;
}

} // namespace

bool detail::isElevationGranted(const fn::String& action)
{
    ElevationPrompt prompt;
    {
        const std::lock_guard guard(promptLock);
        prompt = installedPrompt();
    }
    if (prompt) return prompt(action);
    fmt::print(stderr,
        "Refused: a request to {}. The program has no way to ask its user (platform::ScopedElevationPrompt).\n",
        action.view());
    return false;
}

ScopedElevationPrompt::ScopedElevationPrompt(ElevationPrompt prompt)
{
    const std::lock_guard guard(promptLock);
    _previous = std::exchange(installedPrompt(), std::move(prompt));
}

ScopedElevationPrompt::~ScopedElevationPrompt()
{
    const std::lock_guard guard(promptLock);
    installedPrompt() = std::move(_previous);
}

} // namespace platform
