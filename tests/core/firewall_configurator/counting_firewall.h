#pragma once
#include "platform/com/com_backend.h"
#include "platform/firewall/firewall_manager.h"
#include "platform/firewall/firewall_policy.h"
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace test {

class Counted;

/// A firewall behind the calls of COM that lets any one of them fail and knows what has not been given back.
class CountingFirewall : public platform::ComBackend {
public:
    struct Rule {
        std::string applicationName;
        platform::NET_FW_RULE_DIRECTION direction;
    };
    static constexpr int noCall = -1;

    CountingFirewall();
    ~CountingFirewall() override;

    // What it answers.
    platform::HRESULT initialization = platform::S_OK;
    platform::LONG currentTypes = platform::NET_FW_PROFILE2_PRIVATE;
    platform::LONG typesThatAreOn = platform::NET_FW_PROFILE2_ALL; ///< A bit for each kind of network.
    std::vector<Rule> rules;
    std::string listedApplication; ///< Empty: none.
    platform::VARIANT_BOOL isListedApplicationEnabled = platform::VARIANT_TRUE;

    /// The index of the call, among those that can fail, which fails.
    void failAt(int index) { _failing = index; }
    bool isThrowing = false; ///< All of them throw instead, as when there is no memory.
    static constexpr platform::HRESULT failure = platform::E_FAIL;

    // What it was asked for.
    std::vector<std::string> calls; ///< Those that can fail, in order.
    std::vector<std::string>
        added; ///< "rule DIRECTION NAME|DESCRIPTION|PATH|PROFILES|ACTION|ENABLED", "application PATH|NAME".
    std::string moniker;
    int initializations = 0; ///< Successful ones that were not undone.
    int uninitializations = 0;

    /// What somebody still holds, or has given back once too often; empty: nothing.
    std::string imbalance() const;

    platform::HRESULT coInitializeEx(void* reserved, platform::DWORD mode) override;
    void coUninitialize() override;
    platform::HRESULT coCreateInstance(platform::REFCLSID clsid, platform::IUnknown* outer, platform::DWORD context,
        platform::REFIID iid, void** object) override;
    platform::HRESULT coGetObject(
        const platform::OLECHAR* moniker, platform::BIND_OPTS* options, platform::REFIID iid, void** object) override;
    platform::BSTR sysAllocStringLen(const platform::OLECHAR* text, platform::UINT length) override;
    void sysFreeString(platform::BSTR text) override;
    platform::HRESULT variantChangeType(platform::VARIANT* target, const platform::VARIANT* source,
        platform::WORD flags, platform::VARTYPE type) override;

    // For its objects.
    platform::HRESULT enter(std::string call); ///< Counts a call; `failure` if this is the one that fails.
    void adopt(std::unique_ptr<Counted> object);
    platform::BSTR allocate(const std::string& ascii); ///< Not counted as a call.

private:
    platform::HRESULT make(platform::REFCLSID clsid, platform::REFIID iid, void** object);

    int _failing = noCall;
    std::vector<std::unique_ptr<Counted>>
        _objects; // All that were ever made: none is deleted while the firewall lives.
    std::set<platform::BSTR> _texts;
    int _wrongFrees = 0;
    int _lateReleases = 0;
};

} // namespace test
