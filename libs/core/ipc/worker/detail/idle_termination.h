#pragma once
#include "base/lifetime.h"
#include "core/ipc/worker/worker.h"
#include "foundation/duration.h"
#include "foundation/handle.h"

namespace ipc {

/// Ends a worker that nobody needs.
///
///     countdown (10 minutes without a message) -> hide the instances in the registry -> 1 second -> ask the delegate
///                  ^                                                                      |
///                  '---------------- show them again, if somebody needs one after all ----'
///
/// The instances are hidden first, so that no look-up gives one out between the last check and the end.
class IdleTermination {
public:
    IdleTermination(Worker& worker, Worker::Delegate& delegate, bool hasOwnProcess)
        : _worker(worker),
          _delegate(delegate),
          _hasOwnProcess(hasOwnProcess)
    {
    }

    bool wantsTermination() const;
    bool canTerminate() const;
    void scheduleTermination(); ///< A message has come: the countdown starts again.
    void stop() { _idleTimer.invalidate(); }

private:
    bool isBusy() const;
    void startTimer(fn::Duration delay);
    void onTimer();
    void startTermination();
    void secondStage();
    void giveUp();

    Worker& _worker;
    Worker::Delegate& _delegate;
    const bool _hasOwnProcess;
    fn::Handle _idleTimer; // Messages do not restart it: when it fires, it looks at `_lastActivity`.
    fn::Duration _lastActivity; // By the loop's clock.
    bool _terminating = false;
    fn::Lifetime _lifetime;
};

} // namespace ipc
