#include "simulated_server.h"

/// When the scanner dies twice within a minute, at whatever moment, the library still hands out every file.
TEST(SimulatedServer, EachFileIsCataloguedThoughTheScannerDiesTwice)
{
    int deaths = 0;
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        const test::MediaFiles files(50);
        core::simulation::Decisions decisions(seed);
        core::simulation::World world(decisions);
        const auto& skyfold = world.start("skyfold", [&] { return files.runSkyfold(); });
        for (int attempt = 0; attempt < 2; ++attempt) {
            world.run([&] { return world.find("scanner") || skyfold.isDead(); }, fn::Duration::seconds(60));
            const auto wait = 5 + decisions.choose(core::simulation::Choice::Load, 6); // It connects within 4 ms.
            world.runFor(fn::Duration::milliseconds(wait));
            auto* const scanner = world.find("scanner");
            if (scanner) world.signal(*scanner, SIGKILL);
            deaths += scanner != nullptr;
        }
        ASSERT_TRUE(world.run([&] { return skyfold.isDead(); }, fn::Duration::seconds(60)));
        EXPECT_EQ(skyfold.status(), 0);
        EXPECT_EQ(files.inCatalogue(), 50);
    }
    EXPECT_GE(deaths, 10);
}
