// What can break here: a peer that makes the hub hold without bound. That the counts are right is seen in the simulated application.
#include "core/ipc/dispatcher/detail/usage_counts.h"
#include "hub_fixture.h"
#include "support/expectations.h"

using namespace test;

TEST(UsageCounts, BoundsWhatOneSenderMakesItHold)
{
    constexpr std::size_t bound = 100;
    ipc::UsageCounts counts(bound);
    const std::vector<WorkerId> receivers { 3 };
    const std::vector<ObjectId> own { objectOf(1, bound) };
    const std::vector<ObjectId> others { objectOf(2, bound) };
    for (std::size_t i = 0; i < bound; ++i) {
        ASSERT_TRUE(counts.canCount(1, own, receivers));
        ASSERT_TRUE(counts.canCount(1, others, receivers));
        for (const WorkerId owner : { 1, 2 }) counts.countReceived(1, objectOf(owner, i), 3);
    }
    EXPECT_FALSE(counts.canCount(1, own, receivers));
    EXPECT_TRUE(counts.canCount(2, others, receivers)) << "another sender pays for itself";
    counts.workerDied(1);
    EXPECT_TRUE(counts.canCount(1, own, receivers)) << "what has gone is charged no longer";
    EXPECT_FALSE(counts.canCount(4, others, receivers)) << "who dies and comes again fills no second share";
    const ExpectAssertions unbacked; // Worker 1 listed objects that their owner never sent.
    counts.workerDied(3);
    EXPECT_TRUE(counts.canCount(1, others, receivers));
}
