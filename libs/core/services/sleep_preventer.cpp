#include "core/services/sleep_preventer.h"
#include "foundation/assertion.h"
#include "foundation/logging/logging.h"
#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "platform/execution_state.h"

namespace core {
namespace {

using platform::ES_AWAYMODE_REQUIRED;
using platform::ES_CONTINUOUS;
using platform::ES_SYSTEM_REQUIRED;
using platform::SetThreadExecutionState;

/// The SleepPreventers of one process, which live on the thread of its run loop.
struct Holders {
    int count = 0;
    platform::EXECUTION_STATE previousState = 0; // The state before the first of them; 0 if unknown.
};

Holders& holders()
{
    static fn::ProcessLocal<Holders> holders;
    return holders.get();
}

FN_LOG_CATEGORY("core.sleepPreventer");

void addHolder()
{
    (void)FN_ASSERT(fn::RunLoop::currentLoop(), fn::sites::preventerBeginsOnLoop);
    if (++holders().count > 1) return;
    auto& previousState = holders().previousState;
    previousState = SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED | ES_AWAYMODE_REQUIRED);
    if (previousState == 0) previousState = SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
    if (previousState == 0) FN_LOG(Error, "Failed to set system sleep state");
}

} // namespace

// The objects have no data. One that was made on the wrong thread is counted, too, since its end will be.
SleepPreventer::SleepPreventer() { addHolder(); }
SleepPreventer::SleepPreventer(const SleepPreventer&) { addHolder(); }
SleepPreventer& SleepPreventer::operator=(const SleepPreventer&) noexcept = default;

SleepPreventer::~SleepPreventer()
{
    (void)FN_ASSERT(fn::RunLoop::currentLoop(), fn::sites::preventerEndsOnLoop);
    if (--holders().count > 0) return;
    const auto previousState = holders().previousState;
    SetThreadExecutionState(previousState != 0 ? previousState : ES_CONTINUOUS);
}

} // namespace core
