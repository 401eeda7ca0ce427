#include "skyfold/read_line.h"
#include "base/posix.h"
#include "foundation/coroutine/on_pool.h"
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

fn::Promise<std::optional<std::string>> readLine() { return fn::onPool(readNext); }

} // namespace media
