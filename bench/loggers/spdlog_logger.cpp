// spdlog, with a file that it flushes after each line.
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include "driver/log_load.h"
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

int main(int argc, char** argv)
{
    bench::LogLoad load(bench::Options(argc, argv));
    const auto logger = spdlog::rotating_logger_mt(
        "bench", (load.folder() / "bench.log").string(), bench::LogLoad::fileBytes, bench::LogLoad::files - 1);
    logger->set_pattern("%H:%M:%S %L %t %s:%# - - - - - - %v"); // About as much as ours writes.
    logger->set_level(spdlog::level::info);
    logger->flush_on(spdlog::level::info);
    bench::announceReady();
    if (load.suppressed()) {
        load.run([&logger = *logger](unsigned thread, std::uint64_t number) {
            SPDLOG_LOGGER_DEBUG(&logger, bench::logFormat, thread, number);
        });
    } else {
        load.run([&logger = *logger](unsigned thread, std::uint64_t number) {
            SPDLOG_LOGGER_INFO(&logger, bench::logFormat, thread, number);
        });
    }
}
