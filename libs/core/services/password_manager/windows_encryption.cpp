#include "core/services/password_manager/windows_encryption.h"
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "foundation/logging/logging.h"
#include "platform/data_protection.h"

namespace core {
namespace {

constexpr int lineLength = 72;

FN_LOG_CATEGORY("core.password");

/// The result of one of the calls; wiped and freed at the end.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { platform::LocalFree(blob.pbData); }

    std::string_view view() const noexcept { return { reinterpret_cast<const char*>(blob.pbData), blob.cbData }; }

    platform::DATA_BLOB blob {};
};

/// `bytes` as the input of a call, which only reads it.
platform::DATA_BLOB input(std::string_view bytes)
{
    if (!std::in_range<platform::DWORD>(bytes.size())) throw fn::RangeException("The text is too long");
    auto* const data = reinterpret_cast<platform::BYTE*>(const_cast<char*>(bytes.data()));
    return { static_cast<platform::DWORD>(bytes.size()), data };
}

void logFailureReason()
{
    const auto reason = platform::dataProtectionFailure();
    if (!reason.empty()) FN_LOG(Warning, "{}", reason);
}

} // namespace

fn::String WindowsEncryption::encrypt(std::string_view text)
{
    try {
        auto in = input(text);
        Output out;
        if (platform::CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, 0, &out.blob)) {
            return fn::ByteArray(out.view()).base64(lineLength);
        }
        FN_LOG(Error, "Could not encrypt password");
        logFailureReason();
    } catch (const fn::Exception& exception) {
        FN_LOG(Error, "Could not encrypt password: {}", exception.what());
    }
    return {};
}

fn::String WindowsEncryption::decrypt(std::string_view text)
{
    try {
        const auto bytes = fn::ByteArray::fromBase64(text);
        auto in = input(bytes.view());
        Output out;
        if (platform::CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, 0, &out.blob)) return out.view();
        FN_LOG(Error, "Could not decrypt password");
        logFailureReason();
    } catch (const fn::Exception& exception) {
        FN_LOG(Error, "Could not decrypt password: {}", exception.what());
    }
    return {};
}

WindowsEncryption::~WindowsEncryption() = default;

} // namespace core
