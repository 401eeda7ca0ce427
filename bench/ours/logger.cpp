#include "ours/logger.h"
#include "core/services/logging_profile/logging_profile_sink.h"
#include "driver/log_load.h"
#include "foundation/logging/logging.h"
#include "foundation/system/path_manager.h"
#include <fstream>

namespace bench::ours {
namespace {

constexpr const char* site = "bench/ours/logger";

fn::String makeProfile(const std::filesystem::path& folder)
{
    std::filesystem::create_directory(folder);
    std::ofstream(folder / "bench") << "enabled=true\nthreshold=4\n";
    return folder.string();
}

} // namespace

void runLogger(const Options& options)
{
    LogLoad load(options);
    fn::PathManager::instance().overrideFolder(fn::PathManager::LogFolder, fn::String(load.folder().string()));
    const auto sink = fn::makeAuto<core::LoggingProfileSink>("bench");
    sink->reload(makeProfile(load.folder().parent_path() / "profiles"));
    fn::logging::CategoryManager::instance().addSink(sink);
    const auto& category = fn::logging::CategoryManager::instance().getCategory("bench.logger");
    announceReady();
    if (load.suppressed()) {
        load.run([&](unsigned thread, std::uint64_t number) {
            FN_LOG_TO(category, fn::logging::Debug, fn::logging::Tag(), site, logFormat, thread, number);
        });
    } else {
        load.run([&](unsigned thread, std::uint64_t number) {
            FN_LOG_TO(category, fn::logging::Info, fn::logging::Tag(), site, logFormat, thread, number);
        });
    }
}

} // namespace bench::ours
