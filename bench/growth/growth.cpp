// How a hub and its workers behave as the work grows: who serves, and who measures.
#include "driver/roles.h"
#include "growth/roles.h"

int main(int argc, char** argv)
{
    using namespace bench::growth;
    bench::play(bench::Options(argc, argv),
        { { "subject", playSubject }, { "crowd", playCrowd }, { "calls", playCalls }, { "objects", playObjects },
            { "registry", playRegistry }, { "pending", playPending }, { "death", playDeath }, { "bulk", playBulk } });
}
