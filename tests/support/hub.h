#pragma once
#include "support/child_process.h"

namespace test {

/// A dispatcher in a process of its own, and where it listens. Killed at the latest when this goes.
class Hub : public ChildProcess {
public:
    Hub();
    ~Hub();
    std::string socket; ///< Path of its endpoint.
    std::string pipeName; ///< The same for workers.
};

} // namespace test
