#pragma once
#include "examples/media_server/skyfold_fixture.h"
#include "web_client.h"
#include <optional>

namespace test {

/// The program as it serves its inspectors.
class WebProgramTest : public SkyfoldTest {
protected:
    WebProgramTest();

    /// The address that the program announces for the `count`th time: each time its module starts.
    WebAddress awaitAddress(std::size_t count = 1);

    std::optional<Program> program; // Runs.
};

} // namespace test
