#include "platform/execution_state.h"
#include "base/file_descriptor.h"
#include "platform/detail/sleep_inhibitor.h"
#include <mutex>
#include <utility>

namespace platform {
namespace {

/// The request of this process to the login manager.
class SleepInhibition {
public:
    EXECUTION_STATE set(EXECUTION_STATE flags)
    {
        if (flags != ES_CONTINUOUS && flags != (ES_CONTINUOUS | ES_SYSTEM_REQUIRED)) return 0;
        const std::lock_guard guard(_lock);
        if (flags == ES_CONTINUOUS)
            _inhibitor = fn::FileDescriptor();
        else if (!_inhibitor)
            _inhibitor = fn::FileDescriptor(inhibitSleep());
        if (flags != ES_CONTINUOUS && !_inhibitor) return 0;
        return std::exchange(_state, flags);
    }

private:
    std::mutex _lock;
    EXECUTION_STATE _state = ES_CONTINUOUS;
    fn::FileDescriptor _inhibitor; // Open while the system must not sleep.
};

} // namespace

EXECUTION_STATE SetThreadExecutionState(EXECUTION_STATE flags)
{
    static auto& inhibition = *new SleepInhibition; // The request ends with the process.
    return inhibition.set(flags);
}

} // namespace platform
