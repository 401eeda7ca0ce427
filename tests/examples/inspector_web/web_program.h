#pragma once
#include "examples/media_server/program.h"
#include "support/temporary_folder.h"
#include "web_client.h"
#include <functional>
#include <gtest/gtest.h>
#include <optional>

namespace test {

/// Whether `condition` comes true within a bound; looks again and again.
bool await(const std::function<bool()>& condition);

/// The program, in folders of its own, as it serves its inspectors.
class WebProgramTest : public testing::Test {
protected:
    WebProgramTest();

    /// The address that the program announces for the `count`th time: each time its module starts.
    WebAddress awaitAddress(std::size_t count = 1);

    TemporaryFolder folder;
    std::optional<Program> program; // Runs.
};

} // namespace test
