#include "base/utf8.h"
#include "core/services/firewall_configurator/detail/bstr.h"
#include "core/services/firewall_configurator/detail/firewall_configurators.h"
#include "core/services/firewall_configurator/detail/log.h"

namespace core {

using namespace platform;
using detail::Bstr;
using detail::ComPtr;
using detail::failure;

namespace {

FN_LOG_CATEGORY("core.firewall");

/// Gives a new entry of the list its path and its name.
bool describe(INetFwAuthorizedApplication& application, const fn::String& path, const fn::String& name)
{
    const Bstr fileName(path);
    if (!fileName) return failure("Allocation of process file name string failed!");
    if (FAILED(application.put_ProcessImageFileName(fileName.get()))) {
        return failure("Configuration of application's image name failed!");
    }
    const Bstr friendlyName(name);
    if (!friendlyName) return failure("Allocation of application's friendly name string failed!");
    if (FAILED(application.put_Name(friendlyName.get()))) {
        return failure("Setting of application's friendly name failed!");
    }
    return true;
}

} // namespace

BaseFirewallConfigurator::~BaseFirewallConfigurator()
{
    if (_profile) close();
}

bool BaseFirewallConfigurator::initialize(bool elevated)
try {
    if (_policy && (!elevated || _elevated)) return true;
    close();
    _elevated = elevated;
    return detail::initializeCom(_comResult) && open(elevated);
} catch (...) {
    return detail::caught();
}

void BaseFirewallConfigurator::close()
{
    _profile.reset();
    _policy.reset();
    _manager.reset();
    detail::uninitializeCom(_comResult);
}

bool BaseFirewallConfigurator::open(bool elevated)
{
    ComPtr<INetFwMgr> manager;
    if (FAILED(detail::create(elevated, CLSID_NetFwMgr, IID_INetFwMgr, manager))) return false;
    ComPtr<INetFwPolicy> policy;
    if (FAILED(manager->get_LocalPolicy(policy.receive())) || !policy) return false;
    ComPtr<INetFwProfile> profile;
    if (FAILED(policy->get_CurrentProfile(profile.receive())) || !profile) return false;
    _manager = std::move(manager);
    _policy = std::move(policy);
    _profile = std::move(profile);
    return true;
}

bool BaseFirewallConfigurator::getApplications(ComPtr<INetFwAuthorizedApplications>& applications)
{
    if (SUCCEEDED(_profile->get_AuthorizedApplications(applications.receive())) && applications) return true;
    return failure("Can't retrieve the list of authorized firewall applications!");
}

bool BaseFirewallConfigurator::isFirewallEnabled(bool& enabled)
try {
    enabled = false;
    if (!_profile) return failure(detail::profileMissing);
    VARIANT_BOOL isOn = VARIANT_FALSE;
    if (FAILED(_profile->get_FirewallEnabled(&isOn))) return false;
    enabled = isOn != VARIANT_FALSE;
    return true;
} catch (...) {
    return detail::caught();
}

bool BaseFirewallConfigurator::isApplicationAuthorized(bool& inbound, bool& outbound, const fn::String& applicationPath)
try {
    if (!_profile) return failure(detail::profileMissing);
    inbound = outbound = false;
    ComPtr<INetFwAuthorizedApplications> applications;
    if (!getApplications(applications)) return false;
    const Bstr path(applicationPath);
    if (!path) return failure("Allocation of process file name string failed!");

    VARIANT_BOOL isEnabled = VARIANT_FALSE;
    ComPtr<INetFwAuthorizedApplication> application;
    const bool isListed =
        fn::isUTF8(applicationPath) && SUCCEEDED(applications->Item(path.get(), application.receive())) && application;
    if (isListed && FAILED(application->get_Enabled(&isEnabled))) {
        return failure("Can't retrieve firewall application state");
    }
    inbound = outbound = isEnabled != VARIANT_FALSE; // The list knows no directions.
    FN_LOGF(Debug, "Authorized application %s is %s in the firewall.", applicationPath.c_str(),
        inbound ? "enabled" : "disabled");
    return true;
} catch (...) {
    return detail::caught();
}

bool BaseFirewallConfigurator::authorizeApplication(
    const fn::String& applicationPath, const fn::String& name, bool inbound, bool outbound)
try {
    if (!inbound && !outbound) return true;
    if (!fn::isUTF8(applicationPath)) return failure(detail::pathNotText);
    if (!initialize(true)) return failure(detail::elevationMissing);
    bool isInbound = false;
    bool isOutbound = false;
    if (!isApplicationAuthorized(isInbound, isOutbound, applicationPath)) return false;
    if (isInbound && isOutbound) return true;

    ComPtr<INetFwAuthorizedApplications> applications;
    if (!getApplications(applications)) return false;
    ComPtr<INetFwAuthorizedApplication> application;
    if (FAILED(detail::create(
            detail::notElevated, CLSID_NetFwAuthorizedApplication, IID_INetFwAuthorizedApplication, application))) {
        return failure("Can't create an instance of authorized application object");
    }
    if (!describe(*application, applicationPath, name)) return false;
    if (FAILED(applications->Add(application.get()))) {
        return failure("Application couldn't be added to the application collection!");
    }
    FN_LOGF(Debug, "Authorized application %s is now enabled in the firewall.\n", applicationPath.c_str());
    return true;
} catch (...) {
    return detail::caught();
}

} // namespace core
