// The whole application, with its modules, in one thread of a simulated world: what machines leave to chance comes from a seed.
#include "application.h"
#include "core/simulation/world.h"
#include <sstream>

int main(int, char** argv)
{
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        core::simulation::Decisions decisions(seed);
        core::simulation::World world(decisions);
        std::ostringstream output;
        const auto& program = world.start("@ID@", [&] { return runApplication(1, argv, output); });
        const bool hasEnded = world.run([&] { return program.isDead(); }, fn::Duration::seconds(60));
        if (!hasEnded || program.status() != 0 || output.str() != "Hello, world!\n") {
            std::cerr << "Seed " << seed << ": exit code " << program.status() << ", output: " << output.str()
                      << std::endl;
            return 1;
        }
    }
}
