#include "support/temporary_folder.h"
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace test {

TemporaryFolder::TemporaryFolder()
{
    auto name = (std::filesystem::temp_directory_path() / "core_test_XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder: " + name);
    _path = name;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

fn::String TemporaryFolder::file(std::string_view name) const { return (_path / name).string(); }

void writeFile(const fn::String& path, std::string_view content)
{
    std::ofstream file(path.c_str(), std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) throw std::runtime_error("not written: " + path.toStdString());
}

std::string readFile(const fn::String& path)
{
    std::ifstream file(path.c_str(), std::ios::binary);
    if (!file) throw std::runtime_error("not read: " + path.toStdString());
    return { std::istreambuf_iterator(file), {} };
}

} // namespace test
