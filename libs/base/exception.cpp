#include "base/exception.h"
#include "base/exception_factory.h"
#include <cstring>
#include <fmt/format.h>
#include <mutex>
#include <vector>

namespace fn {

struct Exception::Details {
    Details() = default;
    Details(const Details& other) : trace(other.trace), infos(other.infos) { }

    CapturedStackTrace trace;
    std::vector<std::pair<std::type_index, std::any>> infos; // So few that a linear search is enough.

    // The text of what(), made at its first call. Copies on several threads may call it at once.
    std::mutex textLock;
    std::string text;
};

namespace {

constexpr int ownFrames = 1; // The constructor of Exception is left out of the trace.

std::string systemText(int code)
{
    char buffer[256];
    return strerror_r(code, buffer, sizeof(buffer));
}

template <typename Info, typename Format> void append(std::string& text, const Exception& exception, Format format)
{
    if (const auto* value = exception.find<Info>()) text += '\n' + format(*value);
}

std::string describe(const Exception& exception)
{
    auto text = exception.message().toStdString();
    append<DetailInfo>(text, exception, [](const String& value) { return value.toStdString(); });
    append<PathInfo>(text, exception, [](const String& value) { return fmt::format("Path: {}", value.view()); });
    append<ErrnoInfo>(
        text, exception, [](int value) { return fmt::format("Errno: {} ({})", value, systemText(value)); });
    // On this platform libuv's numbers are those of errno with the sign changed; from -3000 down they are libuv's own: first those
    // of name look-ups (EAI_*), from -4000 down others such as UV_EOF.
    append<UVErrnoInfo>(text, exception, [](int value) {
        const bool isSystems = value < 0 && value > -3000;
        return isSystems ? fmt::format("UV errno: {} ({})", value, systemText(-value))
                         : fmt::format("UV errno: {}", value);
    });
    append<WinErrorInfo>(
        text, exception, [](std::uint32_t value) { return fmt::format("Windows error: 0x{:08x}", value); });
    append<ErrorCodeInfo>(text, exception, [](int value) { return fmt::format("Error code: {}", value); });
    return text;
}

} // namespace

Exception::Exception(StackTrace choice) : Exception(String(), choice) { }

Exception::Exception(String message, StackTrace choice) : _message(std::move(message))
{
    if (choice == StackTrace::Capture) ownDetails().trace = CapturedStackTrace::capture(ownFrames);
}

Exception::Exception(const Exception&) noexcept = default;
Exception::Exception(Exception&&) noexcept = default;
Exception& Exception::operator=(const Exception&) noexcept = default;
Exception& Exception::operator=(Exception&&) noexcept = default;
Exception::~Exception() = default;

String Exception::className() const { return "Exception"; }

void Exception::raise() const { throw *this; }

const char* Exception::what() const noexcept
{
    if (!_details || _details->infos.empty()) return _message.c_str();
    try {
        const std::lock_guard guard(_details->textLock);
        if (_details->text.empty()) _details->text = describe(*this);
        return _details->text.c_str();
    } catch (...) {
        return _message.c_str(); // There is no memory for the details.
    }
}

const CapturedStackTrace& Exception::stackTrace() const noexcept
{
    static const CapturedStackTrace none;
    return _details ? _details->trace : none;
}

void Exception::removeStackTrace()
{
    if (!_details) return;
    auto& details = ownDetails();
    details.trace = {};
    std::erase_if(details.infos, [](const auto& info) { return info.first == typeid(ResolvedStackTraceInfo); });
}

void Exception::attachAny(std::type_index type, std::any value)
{
    auto& infos = ownDetails().infos;
    const auto found = std::find_if(infos.begin(), infos.end(), [&](const auto& info) { return info.first == type; });
    if (found == infos.end())
        infos.emplace_back(type, std::move(value));
    else
        found->second = std::move(value);
}

const std::any* Exception::findAny(std::type_index type) const noexcept
{
    if (!_details) return nullptr;
    for (const auto& info : _details->infos) {
        if (info.first == type) return &info.second;
    }
    return nullptr;
}

Exception::Details& Exception::ownDetails()
{
    if (!_details)
        _details = std::make_shared<Details>();
    else if (_details.use_count() > 1)
        _details = std::make_shared<Details>(*_details);
    else
        _details->text.clear();
    return *_details;
}

} // namespace fn
