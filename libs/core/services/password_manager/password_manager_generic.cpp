#include "core/services/password_manager/password_manager_generic.h"
#include "base/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/json/deserializer.h"
#include "foundation/json/serializer.h"
#include <utility>

namespace core {
namespace {

fn::String groupPath(std::string_view group) { return fn::String("passwords.") + group; }

/// Whether the file would keep `name` as it is. A name that is no UTF-8 would change, and its secret would never be found.
bool comesBack(std::string_view name)
{
    fn::ByteArray text;
    fn::ByteArrayOutputStream stream(text);
    fn::json::serialize(name, stream);
    stream.flush();
    return fn::json::deserialize(text.view()) == fn::Value(name);
}

/// A map with the key "__type__" marks a boxed value in the preferences file. It could be written but not read again, and all
/// secrets would be lost.
void requireStorable(std::string_view name)
{
    const char* problem = nullptr;
    if (name == "__type__") problem = "The name of a password or its group is reserved";
    if (!comesBack(name)) problem = "The name of a password or its group is not UTF-8";
    if (problem) throw fn::with(fn::RangeException(problem), fn::DetailInfo { fn::String(name) });
}

} // namespace

PasswordManagerGeneric::PasswordManagerGeneric(std::unique_ptr<Encryption> encryption, Preferences preferences)
    : _encryption(std::move(encryption)),
      _preferences(std::move(preferences))
{
}

PasswordManagerGeneric::~PasswordManagerGeneric() = default;

void PasswordManagerGeneric::setPassword(std::string_view group, std::string_view key, std::string_view password)
{
    requireStorable(key);
    for (const auto& part : fn::String(group).split('.')) requireStorable(part);
    const auto text = encrypted(password);
    _preferences.reload();
    _preferences.root().mapForPath(groupPath(group)).set(key, text);
    _preferences.save();
}

/// The text to store. Checks that the file will keep it as it is, before it replaces the former secret.
fn::String PasswordManagerGeneric::encrypted(std::string_view password)
{
    fn::String reason;
    try {
        auto text = _encryption->encrypt(password);
        if ((!text.empty() || password.empty()) && comesBack(text)) return text;
        reason = text.empty() ? "No text came of it" : "What came of it is not UTF-8";
    } catch (const std::exception& exception) {
        reason = exception.what();
    }
    throw fn::with(fn::RuntimeException("The password could not be encrypted"), fn::DetailInfo { reason });
}

fn::String PasswordManagerGeneric::getPassword(std::string_view group, std::string_view key, bool& found)
{
    found = false;
    try {
        _preferences.reload();
    } catch (const fn::DataFormatException&) {
        // A damaged file would refuse all secrets, so the last known contents replace it.
        _preferences.save();
    }
    const auto* const secrets = std::as_const(_preferences.root()).valueForPathIfExists(groupPath(group));
    const auto* const secret = secrets ? secrets->find(key) : nullptr;
    if (!secret) return {};
    found = true;
    return _encryption->decrypt(secret->asString());
}

void PasswordManagerGeneric::removePassword(std::string_view group, std::string_view key)
{
    _preferences.reload();
    auto& root = _preferences.root();
    const auto path = groupPath(group);
    const auto* const secrets = root.valueForPathIfExists(path);
    if (secrets && secrets->isMap()) root.mapForPath(path).remove(key);
    _preferences.save();
}

} // namespace core
