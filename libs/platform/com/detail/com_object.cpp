#include "platform/com/detail/com_object.h"
#include "platform/com/com.h"

namespace platform {

template class ScopedOverride<CoCreateInstance, ComFailure>;

std::atomic<std::int64_t>& detail::objectCount() noexcept
{
    static std::atomic<std::int64_t> count = 0;
    return count;
}

HRESULT detail::resultOf(const fn::Exception& exception) noexcept
{
    if (dynamic_cast<const fn::DataFormatException*>(&exception)) return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
    const auto* const error = exception.find<fn::ErrnoInfo>();
    if (error && (*error == EACCES || *error == EPERM || *error == EROFS)) return E_ACCESSDENIED;
    return E_FAIL;
}

bool detail::isToFail()
{
    const auto failure = ScopedComFailure::current();
    return failure && failure();
}

HRESULT DllCanUnloadNow() { return detail::objectCount() == 0 ? S_OK : S_FALSE; }

} // namespace platform
