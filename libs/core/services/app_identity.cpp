#include "core/services/app_identity.h"
#include "base/utf8.h"
#include <algorithm>
#include <string>

namespace core {
namespace {

constexpr std::size_t idBytes = 32;
constexpr std::size_t textBytes = 64;
constexpr char separator = ';'; // The id has none, and the version has none; what lies between them is the name.

bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }
bool isVisible(char c) { return c > 0x20 && c < 0x7f; }

/// The text as an error shows it, whatever is in it.
fn::String shown(const fn::String& text)
{
    std::string result(fn::cutText(text.view(), 2 * textBytes));
    std::ranges::replace_if(result, isControl, '?');
    return '"' + result + '"';
}

[[noreturn]] void refuse(const char* what, const fn::String& text, const char* rule)
{
    throw fn::RuntimeException(
        fn::String("The ") + what + " of an application can not be " + shown(text) + ": it " + rule,
        fn::Exception::StackTrace::None);
}

} // namespace

bool AppIdentity::isId(const fn::String& text)
{
    return !text.empty() && text.size() <= idBytes && isLower(text.view().front())
        && std::ranges::all_of(
            text.view(), [](char c) { return isLower(c) || (c >= '0' && c <= '9') || c == '-' || c == '_'; });
}

void AppIdentity::check() const
{
    if (!isId(id))
        refuse("id", id,
            "is 1 to 32 of a-z, 0-9, '-' and '_', and begins with a letter, as folders and pipes are named so");
    const auto isOfName = [](char c) { return !isControl(c) && c != '/'; };
    if (name.empty() || name.size() > textBytes || !std::ranges::all_of(name.view(), isOfName)
        || !fn::isUTF8(name.view()))
        refuse("name", name, "is one line of text, at most 64 bytes, without '/'");
    const auto isOfVersion = [](char c) { return isVisible(c) && c != separator; };
    if (version.empty() || version.size() > textBytes || !std::ranges::all_of(version.view(), isOfVersion))
        refuse("version", version, "is at most 64 visible ASCII characters without ';', like 1.0.2");
}

fn::String AppIdentity::toText() const { return id + ";" + name + ";" + version; }

AppIdentity AppIdentity::fromText(const fn::String& text)
{
    const auto view = text.view();
    const auto first = view.find(separator);
    const auto last = view.rfind(separator);
    if (first == last) { // One of them, or none.
        throw fn::RuntimeException("Not ID;NAME;VERSION: " + shown(text), fn::Exception::StackTrace::None);
    }
    AppIdentity identity { view.substr(0, first), view.substr(first + 1, last - first - 1), view.substr(last + 1) };
    identity.check();
    return identity;
}

} // namespace core
