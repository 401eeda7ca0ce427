#pragma once
#include "base/exception.h"
#include "foundation/value.h"

namespace ipc {

/// How an exception crosses workers: a map that names its class and carries its message, details and stack trace.
/// A trace captured here is resolved for it; one that came from another worker is passed on.
fn::Value exceptionRecord(const fn::Exception& exception);

bool isExceptionRecord(const fn::Value& error);

/// The exception of a record, of the same class where it is registered here, with the details attached.
std::exception_ptr exceptionFromRecord(const fn::Value& record);

} // namespace ipc
