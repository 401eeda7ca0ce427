#pragma once
#include "foundation/assertion.h"
#include <string>
#include <vector>

namespace test {

/// Routes broken invariants and unhandled exceptions into test failures.
void installFailureHooks();

/// While it lives, broken invariants are collected instead of failing the test. Thread-safe; not nested.
class ExpectAssertions {
public:
    ExpectAssertions();
    ~ExpectAssertions();
    /// "file:line function expression" of each report, in order.
    std::vector<std::string> reports() const;
};

/// While it lives, exceptions given to fn::unhandledException() are collected instead of failing the test.
class ExpectUnhandled {
public:
    ExpectUnhandled();
    ~ExpectUnhandled();
    std::vector<std::string> messages() const; ///< `what()` of each.
};

} // namespace test
