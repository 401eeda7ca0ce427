#pragma once
#include "base/exception.h"
#include "foundation/value.h"

namespace ipc {

/// The form in which an exception travels to another worker: a map of its class name, message, details and stack trace.
/// Resolves a stack trace that was captured in this process, and passes on one that came from another worker.
fn::Value exceptionRecord(const fn::Exception& exception);

bool isExceptionRecord(const fn::Value& error);

/// The exception of a record, with the details attached; of the same class if that is registered in this process.
std::exception_ptr exceptionFromRecord(const fn::Value& record);

} // namespace ipc
