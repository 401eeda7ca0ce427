// Any bytes as the file of the firewall's rules. What is read takes one more rule, and is read again with it.
#include "platform/com/com.h"
#include "platform/com/elevation_prompt.h"
#include "platform/firewall/firewall_file.h"
#include "platform/firewall/firewall_policy.h"
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

using namespace platform;

/// A file that goes with the process.
class ScratchFile {
public:
    ScratchFile()
    {
        auto name = (std::filesystem::temp_directory_path() / "firewall_rules_fuzz_XXXXXX").string();
        if (!::mkdtemp(name.data())) std::abort();
        _folder = name;
    }
    ~ScratchFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(_folder, ignored);
    }
    std::string path() const { return (_folder / "firewall.rules").string(); }

private:
    std::filesystem::path _folder;
};

void require(bool condition)
{
    if (!condition) std::abort();
}

INetFwRules* elevatedRules()
{
    BIND_OPTS3 options {};
    options.cbStruct = bindOptions3Bytes;
    options.dwClassContext = CLSCTX_LOCAL_SERVER;
    void* policy = nullptr;
    const auto* const moniker = u"Elevation:Administrator!new:{E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}";
    require(CoGetObject(moniker, &options, IID_INetFwPolicy2, &policy) == S_OK);
    INetFwRules* rules = nullptr;
    require(static_cast<INetFwPolicy2*>(policy)->get_Rules(&rules) == S_OK);
    static_cast<INetFwPolicy2*>(policy)->Release();
    return rules;
}

INetFwRule* newRule()
{
    void* rule = nullptr;
    require(CoCreateInstance(CLSID_NetFwRule, nullptr, CLSCTX_INPROC_SERVER, IID_INetFwRule, &rule) == S_OK);
    return static_cast<INetFwRule*>(rule);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const ScratchFile scratch;
    static const ScopedFirewallFile file(scratch.path());
    static const ScopedElevationPrompt prompt([](const fn::String&) { return true; });
    static const HRESULT ready = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    require(ready == S_OK);
    static INetFwRules& rules = *elevatedRules();
    static INetFwRule& rule = *newRule();

    std::ofstream(scratch.path(), std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<long>(size));
    require(::chmod(scratch.path().c_str(), 0600) == 0);
    LONG before = 0;
    LONG after = 0;
    const bool isRead = SUCCEEDED(rules.get_Count(&before));
    require(SUCCEEDED(rules.Add(&rule)) == isRead);
    require(SUCCEEDED(rules.get_Count(&after)) == isRead);
    require(!isRead || after == before + 1);
    return 0;
}
