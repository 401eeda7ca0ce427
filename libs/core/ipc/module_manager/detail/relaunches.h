#pragma once
#include "base/string.h"
#include "core/ipc/module_manager/module_options.h"
#include <deque>

namespace ipc {

/// Decides by a module's policy what follows an end: another launch, and when, or none.
class Relaunches {
public:
    enum class End {
        Exited, ///< Its process, once the worker has connected.
        ExitedEarly, ///< Its process, before.
        TimedOut, ///< Its worker has not connected in time.
        Silent, ///< It has stopped responding.
    };

    explicit Relaunches(const RelaunchPolicy& policy = {}) : _policy(policy), _nextDelay(policy.delay) { }

    static void check(const RelaunchPolicy& policy); ///< `fn::RangeException` for one that makes no sense.

    void launched() { ++_launches; }
    void reset(); ///< Forgets all launches and ends.

    /// How long after an end at `now` the module is launched again; none: it is given up. `ranFor`: how long it was connected.
    std::optional<fn::Duration> after(End end, fn::Duration now, fn::Duration ranFor);

    bool hasLimit() const { return _policy.limit.has_value(); }
    fn::String limitText() const; ///< ", after 3 times within 60 s".

private:
    bool isAllowed(End end, fn::Duration now);

    const RelaunchPolicy _policy;
    fn::Duration _nextDelay;
    std::deque<fn::Duration> _relaunches; // When each was decided; only those that count for the limit.
    int _launches = 0;
    int _timeouts = 0;
};

} // namespace ipc
