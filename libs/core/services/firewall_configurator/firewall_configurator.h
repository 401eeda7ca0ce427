#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "base/string.h"
#include "platform/com/elevation_prompt.h"
#include <memory>

namespace core {

/// Asks the user for an administrator's rights while it lives: a program makes one in `main()`, else they are refused.
using ScopedElevationPrompt = platform::ScopedElevationPrompt;

/// Tells whether the firewall is on and whether it admits a program, and lets it admit one.
///
/// On Linux it works on a file of the user's (`rulesFile()`): the answers are about that file and no packet filter is changed.
///
/// An operation that fails gives false, with a log line in "core.firewall" for most reasons; its results are then undefined. No
/// operation throws. An instance is used and destroyed on one thread, on which it keeps COM initialized while it needs it.
class FN_EXPORT FirewallConfigurator {
public:
    FirewallConfigurator() = default;
    FirewallConfigurator(const FirewallConfigurator&) = delete;
    FirewallConfigurator& operator=(const FirewallConfigurator&) = delete;

    /// Uses the system's older interface, which knows no directions.
    static std::unique_ptr<FirewallConfigurator> createBaseConfigurator();

    /// Uses the newer interface, with rules for each direction.
    static std::unique_ptr<FirewallConfigurator> createAdvancedConfigurator();

    /// Where the rules are kept; it need not exist. `fn::IOException` if the user has no home. Thread-safe.
    static fn::String rulesFile();

    /// Connects to the firewall. With `elevated` the user is asked for an administrator's rights, and this waits for his
    /// answer. Does nothing if the present connection suffices; otherwise gives that up first, even if the new one fails.
    virtual bool initialize(bool elevated) = 0;

    /// Whether the firewall is on for all networks that the machine is in now. After `initialize()`.
    virtual bool isFirewallEnabled(bool& enabled) = 0;

    /// Tells which directions are open to a program. Paths are compared letter by letter; no rule has a path that is no UTF-8.
    /// After `initialize()`.
    virtual bool isApplicationAuthorized(bool& inbound, bool& outbound, const fn::String& applicationPath) = 0;

    /// Opens the given directions to a program, for good; the firewall's settings show the user `name`. Initializes with elevated
    /// rights itself, but fails at once for a path that is empty or no UTF-8. With the newer interface a second call adds the
    /// rules again.
    virtual bool authorizeApplication(
        const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound) = 0;

    virtual ~FirewallConfigurator();
};

} // namespace core
