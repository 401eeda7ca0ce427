#include "base/debug.h"
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <unistd.h>

namespace fn::debug {

String demangleTypeName(const char* mangled)
{
    struct Free {
        void operator()(char* text) const noexcept { std::free(text); }
    };
    if (!mangled) return {};
    int status = 0;
    const std::unique_ptr<char, Free> readable(abi::__cxa_demangle(mangled, nullptr, nullptr, &status));
    return readable ? readable.get() : mangled;
}

String processName() { return fmt::format("{}[{}]", program_invocation_short_name, getpid()); }

} // namespace fn::debug
