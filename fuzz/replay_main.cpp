// Stands in for libFuzzer's main(): runs a fuzz target once for each file of the given folder, and for no bytes at all.
// A target that finds a fault aborts, which fails the test; the file named last is then the culprit.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(folder)) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
    }
    std::ranges::sort(files);
    return files;
}

} // namespace

int main(int argc, char** argv)
{
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::size_t inputs = 1;
    for (int i = 1; i < argc; ++i) {
        for (const auto& file : filesOf(argv[i])) {
            std::fprintf(stderr, "%s\n", file.c_str());
            std::ifstream stream(file, std::ios::binary);
            const std::vector<char> bytes { std::istreambuf_iterator<char>(stream), {} };
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    std::fprintf(stderr, "%zu inputs\n", inputs);
    return 0;
}
