// Any bytes as a preferences file. What loads must save, read back, and load as the same document.
#include "base/exceptions.h"
#include "core/services/preferences.h"
#include "foundation/unhandled_exception.h"
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

/// A file that goes with the process.
class ScratchFile {
public:
    ScratchFile()
    {
        auto name = (std::filesystem::temp_directory_path() / "preferences_fuzz_XXXXXX").string();
        if (!::mkdtemp(name.data())) std::abort();
        _folder = name;
    }
    ~ScratchFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(_folder, ignored);
    }
    std::string path() const { return (_folder / "Fuzz.prefs").string(); }

private:
    std::filesystem::path _folder;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const ScratchFile file;
    // A file that does not read back is reported there.
    fn::setUnhandledExceptionHook([](std::exception_ptr) { std::abort(); });

    std::ofstream(file.path(), std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<long>(size));
    core::Preferences preferences(file.path());
    try {
        preferences.reload();
    } catch (const fn::Exception&) {
        return 0;
    }
    preferences.save();
    core::Preferences copy(file.path());
    copy.reload();
    if (copy.root() != preferences.root()) std::abort();
    return 0;
}
