#include "foundation/system/environment.h"
#include "base/exceptions.h"
#include "foundation/uv/system.h"
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <pwd.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace fn {
namespace {

std::mutex environmentMutex;

bool hasNul(const String& text) { return text.contains(std::string_view("\0", 1)); }

void checkResult(int result, const String& name)
{
    if (result == 0) return;
    const int error = errno;
    throw with(
        IOException(std::generic_category().message(error)), ErrnoInfo { error }, DetailInfo { "Variable: " + name });
}

} // namespace

std::optional<String> Environment::get(const String& name)
{
    if (hasNul(name)) return std::nullopt;
    if (auto* const system = uv::System::current()) {
        const auto own = system->environment().find(name);
        if (own != system->environment().end()) return own->second;
    }
    const std::lock_guard guard(environmentMutex);
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<String>(value) : std::nullopt;
}

void Environment::set(const String& name, const String& value)
{
    if (auto* const system = uv::System::current()) {
        system->environment().insert_or_assign(name, value);
        return;
    }
    const std::lock_guard guard(environmentMutex);
    errno = EINVAL;
    checkResult(hasNul(name) || hasNul(value) ? -1 : ::setenv(name.c_str(), value.c_str(), 1), name);
}

void Environment::unset(const String& name)
{
    if (auto* const system = uv::System::current()) {
        system->environment().insert_or_assign(name, std::nullopt);
        return;
    }
    const std::lock_guard guard(environmentMutex);
    errno = EINVAL;
    checkResult(hasNul(name) ? -1 : ::unsetenv(name.c_str()), name);
}

String Environment::userName()
{
    const auto user = ::geteuid();
    std::vector<char> buffer(1024);
    passwd entry;
    passwd* found = nullptr;
    while (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE) buffer.resize(2 * buffer.size());
    return found ? String(found->pw_name) : String::number(user);
}

} // namespace fn
