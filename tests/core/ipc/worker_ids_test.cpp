// What can break here: an id given out while its old bearer is still known somewhere, a death told twice or not at all.
#include "core/ipc/dispatcher/worker_ids.h"
#include <gtest/gtest.h>

TEST(WorkerIds, PrefersIdsWhoseDeathNobodyRemembersAndKnowsWhoDoes)
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
    ids.died(6);
    EXPECT_TRUE(ids.isTold(elder, 8));
    EXPECT_FALSE(ids.isTold(younger, 8));
    EXPECT_FALSE(ids.mustTell(elder, 8)) << "it heard of it with everybody";
    EXPECT_FALSE(ids.mustTell(younger, 5)) << "the notice everybody waits for tells it";
    others = { &younger };
    EXPECT_EQ(ids.next(others), 8);
    EXPECT_TRUE(ids.mustTell(younger, 8));
    EXPECT_FALSE(ids.mustTell(younger, 8)) << "told already";
    EXPECT_EQ(ids.next(others), 7) << "8 is remembered now";
    others.push_back(&elder);
    EXPECT_EQ(ids.next(others), 8) << "all are remembered: the longest dead";
    ids.forget(younger, 8);
    ids.giveOut(8);
    EXPECT_FALSE(ids.isTold(elder, 8) || ids.isTold(younger, 8));
    EXPECT_EQ(ids.next(others), 7);
}
