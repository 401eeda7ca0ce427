#pragma once
#include "base/string.h"
#include <filesystem>
#include <string_view>

namespace test {

/// A new folder that goes, with all it holds, at the end of the scope.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return _path; }
    fn::String file(std::string_view name) const; ///< The path of an entry, which need not exist.

private:
    std::filesystem::path _path;
};

/// Replaces the content of a file.
void writeFile(const fn::String& path, std::string_view content);
std::string readFile(const fn::String& path);

} // namespace test
