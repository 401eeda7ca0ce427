#pragma once
#include "core/services/app_info.h"
#include "core/simulation/world.h"
#include "foundation/system/environment.h"
#include "library/media_library.h"
#include "skyfold/program.h"
#include "support/temporary_folder.h"
#include <csignal>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace test {

/// A folder of media files, and the application that catalogues it.
class MediaFiles {
public:
    explicit MediaFiles(int count)
    {
        std::filesystem::create_directory(_folder.path() / "files");
        for (int i = 0; i < count; ++i) writeFile(_folder.file(fmt::format("files/{}", i)), std::to_string(i));
    }

    /// What its main() does: hub, module manager and console, until all is catalogued.
    int runSkyfold() const
    {
        fn::Environment::set("XDG_RUNTIME_DIR", _folder.file(""));
        fn::Environment::set("XDG_CONFIG_HOME", _folder.file("config"));
        media::Options options;
        options.run = { .folder = _folder.file("files"), .dataFolder = _folder.file("data"), .json = true };
        options.isSingle = false;
        return media::Program(std::move(options)).run();
    }

    std::int64_t inCatalogue() const
    {
        media::MediaLibrary library(_folder.file("data/catalogue.sqlite"));
        return library.folders().at(0).files;
    }

private:
    const TemporaryFolder _folder;
};

} // namespace test
