#include "foundation/uv/run_process.h"
#include "base/auto_ptr.h"
#include "foundation/coroutine/settler.h"
#include <csignal>

namespace fn::uv {

Promise<ProcessExit> runProcess(Loop& loop, ProcessOptions options)
{
    const auto promise = Promise<ProcessExit>::create();
    const auto process = makeAuto<Process>(loop);
    options.onExit = [waiting = internal::Settler(promise)](std::int64_t status, int signal) {
        (*waiting).fulfill({ status, signal });
    };
    try {
        process->spawn(std::move(options));
    } catch (...) {
        return Promise<ProcessExit>::rejected(std::current_exception());
    }
    promise.onCancel([process] { process->kill(SIGTERM); }); // Holds the process until the promise is settled.
    return promise;
}

} // namespace fn::uv
