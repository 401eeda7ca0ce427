#include "foundation/uv/status.h"
#include "base/exceptions.h"
#include <array>
#include <fmt/format.h>
#include <uv.h>

namespace fn::uv {

String Status::what() const
{
    if (ok()) return "success";
    std::array<char, 128> text;
    std::array<char, 64> name;
    uv_strerror_r(_code, text.data(), text.size());
    uv_err_name_r(_code, name.data(), name.size());
    return fmt::format("{}: {} ({})", _action.view(), text.data(), name.data());
}

void Status::throwOnError() const
{
    if (!ok()) throw with(IOException(what()), UVErrnoInfo { _code });
}

} // namespace fn::uv
