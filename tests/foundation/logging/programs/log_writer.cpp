// Writes numbered lines from several threads into a log that others write, too:
// test_log_writer PATH MAXIMUM_SIZE MAXIMUM_COUNT PROCESS THREADS LINES
#include "foundation/auto_ptr.h"
#include "foundation/logging/log_file_target.h"
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    if (argc != 7) return 2;
    const auto target = fn::makeAuto<fn::LogFileTarget>(fn::String(argv[1]));
    target->setMaximumSize(std::strtoull(argv[2], nullptr, 10));
    target->setMaximumCount(std::atoi(argv[3]));
    const int process = std::atoi(argv[4]), lines = std::atoi(argv[6]);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < std::atoi(argv[5]); ++thread) {
        threads.emplace_back([&, thread] {
            for (int line = 0; line < lines; ++line) {
                const std::string filling(static_cast<std::size_t>(line % 90), 'x');
                target->write(fmt::format("{} {} {} {}.\n", process, thread, line, filling));
            }
        });
    }
}
