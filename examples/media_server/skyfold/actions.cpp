#include "skyfold/actions.h"
#include "base/exceptions.h"
#include "core/services/app_info.h"
#include "core/services/firewall_configurator/firewall_configurator.h"
#include "core/services/log_archive.h"
#include "core/services/network_signature.h"
#include "core/services/password_manager/password_manager.h"
#include "foundation/run_loop.h"
#include "skyfold/ending_signals.h"
#include "skyfold/secret_prompt.h"
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace media {
namespace {

constexpr int signalled = 128; // The exit code is this plus the signal's number.

bool hasTerminal() { return ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO); }

bool confirm(const std::string& question)
{
    std::printf("%s [y/N] ", question.c_str());
    std::fflush(stdout);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

struct Admission {
    bool isOn = false;
    bool inbound = false;
    bool outbound = false;
};

std::optional<Admission> askFirewall(core::FirewallConfigurator& firewall, const fn::String& program)
{
    Admission result;
    if (!firewall.initialize(false) || !firewall.isFirewallEnabled(result.isOn)
        || !firewall.isApplicationAuthorized(result.inbound, result.outbound, program))
        return std::nullopt;
    return result;
}

void print(const Admission& admission)
{
    const auto word = [](bool open) { return open ? "admitted" : "not admitted"; };
    std::printf("Firewall: %s\nInbound:  %s\nOutbound: %s\n", admission.isOn ? "on" : "off", word(admission.inbound),
        word(admission.outbound));
}

} // namespace

int archiveLogs()
{
    const auto path = core::LogArchive::createLogArchive();
    if (path.empty()) {
        std::fputs("skyfold: the logs could not be archived; the log tells why\n", stderr);
        return 1;
    }
    std::printf("%s\n", path.c_str());
    return 0;
}

int setPassword(const Options& options)
{
    Secret secret;
    if (const int signal = askForSecret("Secret for " + options.passwordGroup + ", " + options.passwordKey, secret))
        return signalled + signal;
    core::PasswordManager::instance().setPassword(options.passwordGroup, options.passwordKey, secret.text);
    return 0;
}

int followNetwork()
{
    auto& loop = fn::RunLoop::defaultLoop().uvLoop();
    auto& network = core::NetworkSignature::instance();
    const auto print = [](const fn::String& signature) {
        std::printf("%s\n", signature.c_str());
        std::fflush(stdout);
    };
    const auto listener = network.addChangeListener(print);
    print(network.get());
    return signalled + runUntilSignal(loop);
}

int showFirewall()
{
    const auto name = core::AppInfo::instance().applicationDisplayName();
    const auto program = fn::String(std::filesystem::canonical("/proc/self/exe").string());
    const core::ScopedElevationPrompt prompt([&](const fn::String& action) {
        return hasTerminal() && confirm(fmt::format("{} wants to {}. Allow it?", name.view(), action.view()));
    });
    const auto firewall = core::FirewallConfigurator::createAdvancedConfigurator();
    auto admission = askFirewall(*firewall, program);
    if (!admission) {
        std::fputs("skyfold: the firewall does not answer; the log tells why\n", stderr);
        return 1;
    }
    print(*admission);
    std::printf("(These are rules in %s. No packet filter is changed on this system.)\n",
        core::FirewallConfigurator::rulesFile().c_str());
    if ((admission->inbound && admission->outbound) || !hasTerminal()) return 0;
    if (!confirm(fmt::format("Let the firewall admit {}?", name.view()))) return 0;
    if (!firewall->authorizeApplication(program, name, !admission->inbound, !admission->outbound)) {
        std::fputs("skyfold: the firewall was not changed\n", stderr);
        return 1;
    }
    admission = askFirewall(*firewall, program);
    if (admission) print(*admission);
    return 0;
}

} // namespace media
