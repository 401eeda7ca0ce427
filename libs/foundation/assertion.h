#pragma once
#include "base/export.h"

namespace fn {

/// Where an invariant is checked. `file` and `line` identify the site in crash reports and are grouped there by value:
/// they are constants of the class concerned and stay as they are when the code moves.
struct AssertionSite {
    const char* file;
    int line;
    const char* function;
    const char* expression;
};

using AssertionHook = void (*)(const AssertionSite&);

/// Reports a broken invariant to the hook. Never throws. Thread-safe.
FN_EXPORT void reportAssertion(const AssertionSite& site) noexcept;

/// Replaces the hook (null restores the default, which logs at priority 1 and goes on) and gives back the previous one.
/// Thread-safe. Tests install one that fails the test.
FN_EXPORT AssertionHook setAssertionHook(AssertionHook hook) noexcept;

} // namespace fn

/// Evaluates to the condition. A false one is reported to the assertion hook, and the caller handles the false branch:
/// `if (!FN_ASSERT(entry, "libs/core/ipc/worker", 169, "onMessage", "instance")) return;`
#define FN_ASSERT(condition, ...) \
    (static_cast<bool>(condition) || (::fn::reportAssertion(::fn::AssertionSite { __VA_ARGS__ }), false))
