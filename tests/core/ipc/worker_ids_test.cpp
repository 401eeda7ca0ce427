// What can break here: an id given out while its old bearer is still known somewhere. Who is told of a death is seen in the simulated
// application.
#include "core/ipc/dispatcher/detail/worker_ids.h"
#include <gtest/gtest.h>

TEST(WorkerIds, PrefersIdsWhoseDeathNobodyRemembers)
{
    ipc::WorkerIds ids;
    std::vector<const ipc::WorkerIds::Listener*> others;
    for (int id = 0; id < ipc::NO_WORKER_ID; ++id) {
        ASSERT_EQ(ids.next(others), id);
        ids.giveOut(static_cast<ipc::WorkerId>(id));
    }
    EXPECT_FALSE(ids.next(others)) << "all are in use";
    ids.died(0);
    EXPECT_FALSE(ids.next(others)) << "0 is the dispatcher's own for ever";
    auto elder = ids.accept();
    ids.died(8);
    ids.died(7);
    auto younger = ids.accept();
    others = { &younger };
    EXPECT_EQ(ids.next(others), 8);
    EXPECT_TRUE(ids.mustTell(younger, 8));
    EXPECT_EQ(ids.next(others), 7) << "8 is remembered now";
    others.push_back(&elder);
    EXPECT_EQ(ids.next(others), 8) << "all are remembered: the longest dead";
    for (auto* listener : { &elder, &younger }) ids.forget(*listener, 8);
    ids.giveOut(8);
    EXPECT_FALSE(ids.isTold(elder, 8) || ids.isTold(younger, 8));
    EXPECT_EQ(ids.next(others), 7);
    ids.giveOut(7);
    EXPECT_FALSE(ids.next(others)) << "all are in use again";
}
