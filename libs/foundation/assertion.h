#pragma once
#include "base/export.h"
#include "foundation/assertion_sites.h"

namespace fn {

using AssertionHook = void (*)(const AssertionSite&); ///< Hears of each broken invariant, on the thread that saw it.

/// Reports a broken invariant to the hook. Never throws. Thread-safe.
FN_EXPORT void reportAssertion(const AssertionSite& site) noexcept;

/// Replaces the hook (null restores the default, which logs at priority 1 and goes on) and returns the previous one.
/// Thread-safe. Tests install one that fails the test.
FN_EXPORT AssertionHook setAssertionHook(AssertionHook hook) noexcept;

} // namespace fn

/// Evaluates to the condition. A false one is reported to the assertion hook, and the caller handles the false branch:
/// `if (!FN_ASSERT(instance, fn::sites::releasedInstanceIsHeld)) return;`
#define FN_ASSERT(condition, site) (static_cast<bool>(condition) || (::fn::reportAssertion(site), false))
