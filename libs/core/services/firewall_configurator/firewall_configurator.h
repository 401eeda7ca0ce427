#pragma once
#include "base/export.h"
#include "base/string.h"
#include <memory>

namespace core {

/// Whether the firewall is on, whether it admits a program, and letting it admit one.
///
/// On Linux it works on a file of the user's (`platform::firewallFile()`): the answers are about that file and no packet filter
/// is changed.
///
/// An operation gives false where it has failed, with a log line in "core.firewall" for most reasons; what it should
/// have told is then undefined. Nothing throws. An instance is used and destroyed on one thread, on which it makes COM
/// usable for as long as it needs it.
class FN_EXPORT FirewallConfigurator {
public:
    FirewallConfigurator() = default;
    FirewallConfigurator(const FirewallConfigurator&) = delete;
    FirewallConfigurator& operator=(const FirewallConfigurator&) = delete;

    /// By the system's older interface, which knows no directions.
    static std::unique_ptr<FirewallConfigurator> createBaseConfigurator();

    /// By the newer interface, with rules for each direction.
    static std::unique_ptr<FirewallConfigurator> createAdvancedConfigurator();

    /// Connects to the firewall. With `elevated` the user is asked for an administrator's rights, and this waits for his
    /// answer. Nothing happens if what is there suffices; else it is given up first, even where its successor fails.
    virtual bool initialize(bool elevated) = 0;

    /// Whether the firewall is on for all networks that the machine is in now. After `initialize()`.
    virtual bool isFirewallEnabled(bool& enabled) = 0;

    /// Which directions are open to a program. The path is compared letter by letter; one that is no UTF-8 is in no
    /// rule. After `initialize()`.
    virtual bool isApplicationAuthorized(bool& inbound, bool& outbound, const fn::String& applicationPath) = 0;

    /// Opens the directions asked for to a program, for good; `name` is what the user will see in the firewall's settings.
    /// Initializes with elevated rights itself, but fails at once for a path that is no UTF-8. An empty path is refused.
    /// The newer interface does not look at what is there: called twice, it adds twice.
    virtual bool authorizeApplication(
        const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound) = 0;

    virtual ~FirewallConfigurator();
};

} // namespace core
