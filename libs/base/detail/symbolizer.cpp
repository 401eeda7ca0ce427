#include "base/detail/symbolizer.h"
#include "base/debug.h"
#include <cstring>
#include <dlfcn.h>
#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <malloc.h>
#include <mutex>
#include <optional>
#include <unistd.h>
#include <unordered_map>

namespace fn::internal {
namespace {

// Does what dwfl_linux_proc_find_elf does, but child processes do not inherit the descriptor.
int openModule(Dwfl_Module*, void**, const char* path, Dwarf_Addr, char** fileName, Elf**)
{
    const int descriptor = *path == '/' ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (descriptor >= 0) *fileName = strdup(path);
    return descriptor;
}

// Separate debug files are not looked for: the search of libdw may go as far as a server in the network.
int findNoDebugFile(Dwfl_Module*, void**, const char*, Dwarf_Addr, const char*, const char*, GElf_Word, char**)
{
    return -1;
}

String readableSymbol(const char* symbol)
{
    // Only mangled names are demangled: "f", the name of a function of C, would come out as the type float.
    return std::strncmp(symbol, "_Z", 2) == 0 ? debug::demangleTypeName(symbol) : String(symbol);
}

const Dwfl_Callbacks callbacks {
    .find_elf = openModule,
    .find_debuginfo = findNoDebugFile,
    .section_address = nullptr,
    .debuginfo_path = nullptr,
};

/// The tables of all modules, read for the addresses of one call.
class Session {
public:
    Session() : _session(dwfl_begin(&callbacks))
    {
        if (!_session) return;
        dwfl_report_begin(_session);
        _isReported = dwfl_linux_proc_report(_session, getpid()) == 0;
        dwfl_report_end(_session, nullptr, nullptr);
    }
    Session(const Session&) = delete;
    ~Session()
    {
        dwfl_end(_session);
        malloc_trim(0); // Most freed tables would stay in the heap, between memory in use.
    }

    ResolvedFrame lookUp(std::uintptr_t returnAddress) const
    {
        ResolvedFrame frame;
        const auto call = returnAddress - 1; // The return address may be on the next line, or behind the function.
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

private:
    Dwfl_Module* findModule(Dwarf_Addr address) const
    {
        return _isReported ? dwfl_addrmodule(_session, address) : nullptr;
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

    Dwfl* const _session; // Null if there was no memory.
    bool _isReported = false;
};

class Symbolizer {
public:
    std::vector<ResolvedFrame> resolve(std::span<void* const> returnAddresses)
    {
        const std::lock_guard guard(_lock);
        std::optional<Session> session;
        std::vector<ResolvedFrame> frames;
        frames.reserve(returnAddresses.size());
        for (void* address : returnAddresses) {
            auto found = _frames.find(address);
            if (found == _frames.end()) {
                if (!session) session.emplace();
                found = _frames.emplace(address, session->lookUp(reinterpret_cast<std::uintptr_t>(address))).first;
            }
            frames.push_back(found->second);
        }
        return frames;
    }

private:
    std::mutex _lock;
    std::unordered_map<void*, ResolvedFrame> _frames; // As many as there are places in the code that throw.
};

} // namespace

std::vector<ResolvedFrame> resolveAddresses(std::span<void* const> returnAddresses)
{
    static auto& symbolizer = *new Symbolizer;
    return symbolizer.resolve(returnAddresses);
}

} // namespace fn::internal
