#pragma once
#include "base/byte_view.h"
#include "base/string.h"
#include "foundation/mpack/reader.h"

namespace ipc {

/// Throws what a `fn::mpack::MismatchException` means to people: a `fn::DataFormatException` that names `what`, the place in the value that
/// begins at `start` of `bytes`, what was expected and what came. `areArguments`: the elements of the value are arguments.
[[noreturn]] void throwMismatch(const fn::String& what, fn::ByteView bytes, std::size_t start,
    const fn::mpack::MismatchException& mismatch, bool areArguments = false);

} // namespace ipc
