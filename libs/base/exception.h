#pragma once
#include "base/stack_trace.h"
#include "base/string.h"
#include <any>
#include <exception>
#include <map>
#include <memory>
#include <typeindex>

namespace fn {

/// A typed detail that an exception carries: `exception.attach(DetailInfo { "Type: x" })`.
template <typename T, typename Tag> struct ErrorInfo {
    using Type = T; ///< The type of its value.
    T value; ///< What is told.
};

namespace internal {
struct DetailTag;
struct PathTag;
struct ErrnoTag;
struct UVErrnoTag;
struct WinErrorTag;
struct ErrorCodeTag;
struct StackTraceTag;
struct CallTag;
} // namespace internal

using DetailInfo = ErrorInfo<String, internal::DetailTag>; ///< Free text.
using PathInfo = ErrorInfo<String, internal::PathTag>; ///< The path of the file concerned.
using ErrnoInfo = ErrorInfo<std::int32_t, internal::ErrnoTag>; ///< Of the system's `errno`.
using UVErrnoInfo = ErrorInfo<std::int32_t, internal::UVErrnoTag>; ///< Negative, as libuv gives it.
using WinErrorInfo = ErrorInfo<std::uint32_t, internal::WinErrorTag>; ///< As `GetLastError()` of Windows gives it.
using ErrorCodeInfo = ErrorInfo<std::int32_t, internal::ErrorCodeTag>; ///< A code that belongs to no system.
using CallInfo = ErrorInfo<String, internal::CallTag>; ///< The call that failed, "Class.method"; not part of `what()`.
using ResolvedStackTraceInfo = ErrorInfo<ResolvedStackTrace, internal::StackTraceTag>; ///< Of another process.

/// Root of the library's exceptions. Copies share their details until one of them changes. `what()` is the message followed by
/// the details, one on each line.
class FN_EXPORT Exception : public std::exception {
public:
    /// Whether an exception takes the trace of the stack when it is made.
    enum class StackTrace : int {
        Capture = 0, ///< Takes the trace of the constructing thread.
        None = 1,
    };

    explicit Exception(StackTrace choice = StackTrace::Capture); ///< Without a message.
    /// `message` is for people, and says what, where and why.
    explicit Exception(String message, StackTrace choice = StackTrace::Capture);
    Exception(const Exception&) noexcept;
    Exception(Exception&&) noexcept;
    Exception& operator=(const Exception&) noexcept;
    Exception& operator=(Exception&&) noexcept;
    ~Exception() override;

    /// The class without its namespace. Another process finds the class by this name (`fn::ExceptionFactory`).
    virtual String className() const;
    const String& message() const noexcept { return _message; } ///< For people; without the details that `what()` has.
    String displayText() const { return _message; } ///< The message alone, for people.
    const char* what() const noexcept override;

    const CapturedStackTrace& stackTrace() const noexcept; ///< Where it was made; empty if it was made without a trace.
    void removeStackTrace(); ///< From this copy alone: for exceptions that are expected and merely logged.

    /// Adds or replaces the detail of that type.
    template <typename T, typename Tag> Exception& attach(ErrorInfo<T, Tag> info)
    {
        attachAny(typeid(ErrorInfo<T, Tag>), std::any(std::move(info.value)));
        return *this;
    }

    /// The detail of that type, or null. Valid until the exception changes.
    template <typename Info> const typename Info::Type* find() const noexcept
    {
        return std::any_cast<typename Info::Type>(findAny(typeid(Info)));
    }

    /// Throws a copy of the exact class.
    [[noreturn]] virtual void raise() const;

private:
    struct Details;
    void attachAny(std::type_index type, std::any value);
    const std::any* findAny(std::type_index type) const noexcept;
    Details& ownDetails();

    String _message;
    std::shared_ptr<Details> _details; // Never null once a trace or a detail exists; copied before a change if shared.
};

/// Adds a detail to an exception about to be thrown and keeps its class: `throw with(RangeException("..."), DetailInfo { x });`
template <typename E, typename... Infos> E with(E exception, Infos... infos)
{
    (exception.attach(std::move(infos)), ...);
    return exception;
}

} // namespace fn

/// Declares a class of the exception family. Its out-of-line members are in FN_IMPLEMENT_EXCEPTION.
#define FN_DECLARE_EXCEPTION(Name, Base) \
    class FN_EXPORT Name : public Base { \
    public: \
        explicit Name(::fn::Exception::StackTrace choice = ::fn::Exception::StackTrace::Capture); \
        explicit Name( \
            ::fn::String message, ::fn::Exception::StackTrace choice = ::fn::Exception::StackTrace::Capture); \
        Name(const Name&) noexcept; \
        Name(Name&&) noexcept; \
        Name& operator=(const Name&) noexcept; \
        Name& operator=(Name&&) noexcept; \
        ~Name() override; \
        ::fn::String className() const override; \
        [[noreturn]] void raise() const override; \
    }

/// The members of an exception class, and its registration with `fn::ExceptionFactory` when the library is loaded.
#define FN_IMPLEMENT_EXCEPTION(Name, Base) \
    Name::Name(::fn::Exception::StackTrace choice) : Base(choice) { } \
    Name::Name(::fn::String message, ::fn::Exception::StackTrace choice) : Base(std::move(message), choice) { } \
    Name::Name(const Name&) noexcept = default; \
    Name::Name(Name&&) noexcept = default; \
    Name& Name::operator=(const Name&) noexcept = default; \
    Name& Name::operator=(Name&&) noexcept = default; \
    Name::~Name() = default; \
    ::fn::String Name::className() const { return #Name; } \
    void Name::raise() const { throw *this; } \
    static const bool _registered##Name = ::fn::ExceptionFactory::_registerException(#Name, typeid(Name), \
        [](const ::fn::String& message, ::fn::Exception::StackTrace choice) -> std::unique_ptr<::fn::Exception> { \
            return std::make_unique<Name>(message, choice); \
        })
