#include "foundation/detail/symbolizer.h"
#include "foundation/debug.h"
#include <cstring>
#include <dlfcn.h>
#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>
#include <unordered_map>

namespace fn::internal {
namespace {

// As dwfl_linux_proc_find_elf, which leaves its descriptors to child processes.
int openModule(Dwfl_Module*, void**, const char* path, Dwarf_Addr, char** fileName, Elf**)
{
    const int descriptor = *path == '/' ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (descriptor >= 0) *fileName = strdup(path);
    return descriptor;
}

// Modules describe themselves or not at all: the library's own search may go as far as a server in the network.
int findNoDebugFile(Dwfl_Module*, void**, const char*, Dwarf_Addr, const char*, const char*, GElf_Word, char**)
{
    return -1;
}

String readableSymbol(const char* symbol)
{
    // Only mangled names: "f", a function of C, would read as the type float.
    return std::strncmp(symbol, "_Z", 2) == 0 ? debug::demangleTypeName(symbol) : String(symbol);
}

class Symbolizer {
public:
    Symbolizer() : _session(dwfl_begin(&_callbacks)) { }

    ResolvedFrame resolve(void* returnAddress)
    {
        const std::lock_guard guard(_lock);
        const auto found = _frames.find(returnAddress);
        if (found != _frames.end()) return found->second;
        auto frame = lookUp(reinterpret_cast<std::uintptr_t>(returnAddress));
        return _frames.emplace(returnAddress, std::move(frame)).first->second;
    }

private:
    ResolvedFrame lookUp(std::uintptr_t returnAddress)
    {
        ResolvedFrame frame;
        const auto call = returnAddress - 1; // The return may lie beyond the function, or on the next line.
        Dl_info info = {};
        if (!dladdr(reinterpret_cast<void*>(call), &info)) return frame;
        frame.address = static_cast<std::uint32_t>(returnAddress - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
        const auto* slash = std::strrchr(info.dli_fname, '/');
        frame.moduleName = slash ? slash + 1 : info.dli_fname;
        const char* symbol = info.dli_sname;
        if (auto* module = findModule(call)) {
            if (const char* name = dwfl_module_addrname(module, call)) symbol = name;
            addSource(frame, module, call);
        }
        if (symbol) frame.symbolName = readableSymbol(symbol);
        return frame;
    }

    Dwfl_Module* findModule(Dwarf_Addr address)
    {
        if (!_session) return nullptr;
        if (auto* module = dwfl_addrmodule(_session, address)) return module;
        // The first time, or it was loaded since.
        dwfl_report_begin_add(_session);
        const bool reported = dwfl_linux_proc_report(_session, getpid()) == 0;
        dwfl_report_end(_session, nullptr, nullptr);
        return reported ? dwfl_addrmodule(_session, address) : nullptr;
    }

    static void addSource(ResolvedFrame& frame, Dwfl_Module* module, Dwarf_Addr address)
    {
        auto* source = dwfl_module_getsrc(module, address);
        int line = 0;
        const char* file = source ? dwfl_lineinfo(source, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
        if (!file) return;
        frame.fileName = file;
        frame.fileLine = line;
    }

    std::mutex _lock;
    const Dwfl_Callbacks _callbacks {
        .find_elf = openModule,
        .find_debuginfo = findNoDebugFile,
        .section_address = nullptr,
        .debuginfo_path = nullptr,
    };
    Dwfl* const _session; // Null without memory.
    std::unordered_map<void*, ResolvedFrame> _frames; // Bounded by the places that can throw.
};

} // namespace

ResolvedFrame resolveAddress(void* returnAddress)
{
    static auto& symbolizer = *new Symbolizer;
    return symbolizer.resolve(returnAddress);
}

} // namespace fn::internal
