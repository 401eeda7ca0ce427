#include "web_program.h"

namespace test {
namespace {

constexpr std::string_view announcement = "Inspect at ";

} // namespace

WebProgramTest::WebProgramTest()
{
    write("song.mp3", "music");
    program.emplace(arguments({ "--inspect-web", "--json" }));
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
