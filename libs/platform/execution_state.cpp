#include "platform/execution_state.h"
#include "platform/detail/sleep_inhibitor.h"
#include <mutex>
#include <unistd.h>
#include <utility>

namespace platform {

template class ScopedOverride<SetThreadExecutionState>;

namespace {

/// What the login manager was asked for in this process's name.
class SleepInhibition {
public:
    EXECUTION_STATE set(EXECUTION_STATE flags)
    {
        if (flags != ES_CONTINUOUS && flags != (ES_CONTINUOUS | ES_SYSTEM_REQUIRED)) return 0;
        const std::lock_guard guard(_lock);
        if (flags == ES_CONTINUOUS)
            release();
        else if (_descriptor < 0 && (_descriptor = inhibitSleep()) < 0)
            return 0;
        return std::exchange(_state, flags);
    }

private:
    void release()
    {
        if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
    }

    std::mutex _lock;
    EXECUTION_STATE _state = ES_CONTINUOUS;
    int _descriptor = -1; // Open while the system must not sleep.
};

} // namespace

EXECUTION_STATE SetThreadExecutionState(EXECUTION_STATE flags)
{
    if (const auto answer = ScopedExecutionState::current()) return answer(flags);
    static auto& inhibition = *new SleepInhibition; // Ends with the process.
    return inhibition.set(flags);
}

} // namespace platform
