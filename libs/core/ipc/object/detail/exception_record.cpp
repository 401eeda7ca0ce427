#include "core/ipc/object/detail/exception_record.h"
#include "base/exception_factory.h"

namespace ipc {
namespace {

/// Adds the detail under `key` if the exception carries it.
template <typename Info> void addDetail(fn::Value& record, const char* key, const fn::Exception& exception)
{
    if (const auto* detail = exception.find<Info>()) record.set(key, *detail);
}

/// Attaches the detail if the record has it.
template <typename Info> void attachDetail(fn::Exception& exception, const fn::Value& record, const char* key)
{
    const auto& detail = record.get(key);
    if (detail.empty()) return;
    if constexpr (std::is_same_v<typename Info::Type, fn::String>)
        exception.attach(Info { detail.asString() });
    else
        exception.attach(Info { detail.to<typename Info::Type>() });
}

fn::Value encodeTrace(const fn::ResolvedStackTrace& trace)
{
    fn::Value::Array frames;
    frames.reserve(trace.frames.size());
    for (const auto& frame : trace.frames) {
        frames.push_back(fn::Value::map({ { "address", frame.address }, { "moduleName", frame.moduleName },
            { "symbolName", frame.symbolName }, { "fileName", frame.fileName }, { "fileLine", frame.fileLine } }));
    }
    return frames;
}

fn::ResolvedStackTrace decodeTrace(const fn::Value& frames)
{
    fn::ResolvedStackTrace trace;
    if (!frames.isArray()) return trace;
    trace.frames.reserve(frames.size());
    for (const auto& frame : frames.elements()) {
        trace.frames.push_back({ frame.get("address").to<std::uint32_t>(), frame.get("moduleName").asString(),
            frame.get("symbolName").asString(), frame.get("fileName").asString(),
            frame.get("fileLine").to<std::int32_t>() });
    }
    return trace;
}

} // namespace

fn::Value exceptionRecord(const fn::Exception& exception)
{
    auto record = fn::Value::map(
        { { "TYPE", "FN_EXCEPTION" }, { "CLASS_NAME", exception.className() }, { "MESSAGE", exception.message() } });
    addDetail<fn::DetailInfo>(record, "DETAIL", exception);
    addDetail<fn::PathInfo>(record, "PATH", exception);
    addDetail<fn::ErrnoInfo>(record, "ERRNO", exception);
    addDetail<fn::UVErrnoInfo>(record, "UV_ERRNO", exception);
    addDetail<fn::WinErrorInfo>(record, "WIN_ERROR", exception);
    addDetail<fn::ErrorCodeInfo>(record, "ERROR_CODE", exception);
    if (const auto* trace = exception.find<fn::ResolvedStackTraceInfo>()) {
        record.set("STACK_TRACE", encodeTrace(*trace));
    } else if (!exception.stackTrace().empty()) {
        record.set("STACK_TRACE", encodeTrace(exception.stackTrace().resolve()));
    }
    return record;
}

bool isExceptionRecord(const fn::Value& error)
{
    return error.isMap() && error.get("TYPE") == fn::Value("FN_EXCEPTION");
}

std::exception_ptr exceptionFromRecord(const fn::Value& record)
{
    // A stack trace of this place would tell nothing; the record has that of the worker where the exception was thrown.
    const auto exception = fn::ExceptionFactory::createException(
        record.get("CLASS_NAME").asString(), record.get("MESSAGE").asString(), fn::Exception::StackTrace::None);
    attachDetail<fn::DetailInfo>(*exception, record, "DETAIL");
    attachDetail<fn::PathInfo>(*exception, record, "PATH");
    attachDetail<fn::ErrnoInfo>(*exception, record, "ERRNO");
    attachDetail<fn::UVErrnoInfo>(*exception, record, "UV_ERRNO");
    attachDetail<fn::WinErrorInfo>(*exception, record, "WIN_ERROR");
    attachDetail<fn::ErrorCodeInfo>(*exception, record, "ERROR_CODE");
    const auto& frames = record.get("STACK_TRACE");
    if (!frames.empty()) exception->attach(fn::ResolvedStackTraceInfo { decodeTrace(frames) });
    std::exception_ptr raised;
    try {
        exception->raise(); // Throws it as its exact class.
    } catch (...) {
        raised = std::current_exception();
    }
    return raised;
}

} // namespace ipc
