#include "web_program.h"
#include <chrono>
#include <cstdlib>
#include <poll.h>

namespace test {
namespace {

constexpr std::string_view announcement = "Inspect at ";

constexpr auto bound = std::chrono::seconds(60); // Sanitizers, and machines that do other things, take their time.

} // namespace

bool await(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        ::poll(nullptr, 0, 10);
    }
    return true;
}

WebProgramTest::WebProgramTest()
{
    namespace fs = std::filesystem;
    for (const auto* name : { "run", "files" }) fs::create_directory(folder.path() / name);
    fs::permissions(folder.path() / "run", fs::perms::owner_all);
    ::setenv("XDG_RUNTIME_DIR", (folder.path() / "run").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (folder.path() / "state").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (folder.path() / "config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (folder.path() / "share").c_str(), 1);
    ::setenv("HOME", folder.path().c_str(), 1);
    writeFile(folder.file("files/song.mp3"), "music");
    program.emplace(std::vector<std::string> {
        "--inspect-web", "--json", (folder.path() / "files").string(), "--data", (folder.path() / "data").string() });
}

WebAddress WebProgramTest::awaitAddress(std::size_t count)
{
    std::string address;
    const auto find = [&] {
        const auto errors = program->errors();
        std::size_t at = 0;
        for (std::size_t i = 0; i < count; ++i) {
            at = errors.find(announcement, at);
            if (at == std::string::npos) return false;
            at += announcement.size();
        }
        const auto end = errors.find('\n', at);
        if (end == std::string::npos) return false;
        address = errors.substr(at, end - at);
        return true;
    };
    if (!await(find)) ADD_FAILURE() << "No address is announced: " << program->errors();
    return WebAddress(address);
}

} // namespace test
