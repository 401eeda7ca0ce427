#include "skyfold/read_line.h"
#include "base/posix.h"
#include "foundation/system/thread_pool.h"
#include <unistd.h>

namespace media {
namespace {

std::optional<std::string> readNext()
{
    std::string line;
    line.reserve(longestLine); // The line may be a secret, and growing would leave copies of it.
    char byte = 0;
    while (line.size() < longestLine) {
        if (fn::posix::read(STDIN_FILENO, &byte, 1) != 1) {
            if (line.empty()) return std::nullopt;
            return line;
        }
        if (byte == '\n') break;
        line.push_back(byte);
    }
    return line;
}

} // namespace

fn::Promise<std::optional<std::string>> readLine(fn::RunLoop& loop)
{
    const auto result = fn::Promise<std::optional<std::string>>::create();
    fn::ThreadPool::defaultPool().schedule([&loop, answer = result]() mutable {
        loop.post([answer = std::move(answer), line = readNext()]() mutable { answer.fulfill(std::move(line)); });
    });
    return result;
}

} // namespace media
