#pragma once
#include "base/exceptions.h"
#include "base/string.h"

namespace fn::uv {

/// The outcome of a libuv operation: what was tried, and libuv's code (0: success, negative: an error such as UV_EOF).
class FN_EXPORT Status {
public:
    Status() = default; ///< Success.
    Status(String action, int code) : _action(std::move(action)), _code(code) { }

    bool ok() const noexcept { return _code >= 0; } ///< Whether it has worked.
    int code() const noexcept { return _code; } ///< Not negative, or the negative error of libuv.
    const String& action() const noexcept { return _action; } ///< What was tried.
    String what() const; ///< "action: text of the code (NAME)"; "success" if ok.
    void throwOnError() const; ///< `fn::IOException` with `what()` as its message and the code as UVErrnoInfo.

private:
    String _action;
    int _code = 0;
};

} // namespace fn::uv
