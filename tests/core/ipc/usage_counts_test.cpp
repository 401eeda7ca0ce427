// What can break here: a count that differs from the plain two tables it stands for, a release lost or told twice, an index
// that forgets an object when its worker dies, a peer's wrong number that disturbs others.
#include "core/ipc/dispatcher/usage_counts.h"
#include "support/expectations.h"
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

namespace {

using ipc::ObjectId;
using ipc::UsageCounts;
using ipc::WorkerId;

/// The two tables in their plainest form.
struct Model {
    std::map<ObjectId, std::uint32_t> sent;
    std::map<ObjectId, std::map<WorkerId, std::uint32_t>> received;
    std::multiset<std::pair<ObjectId, std::uint32_t>> releases;

    void release(ObjectId id)
    {
        if (const auto found = sent.find(id); found != sent.end()) {
            releases.emplace(id, found->second);
            sent.erase(found);
        }
    }

    void message(ObjectId id, WorkerId sender, const std::vector<WorkerId>& receivers)
    {
        for (const auto receiver : receivers) {
            if (ipc::ownerOf(id) != receiver) ++received[id][receiver];
        }
        if (ipc::ownerOf(id) != sender) return;
        ++sent[id];
        if (!received.contains(id)) release(id);
    }

    void drop(WorkerId worker, ObjectId id, std::uint32_t count)
    {
        auto& holders = received[id];
        if ((holders[worker] -= count) == 0) holders.erase(worker);
        if (!holders.empty()) return;
        release(id);
        received.erase(id);
    }

    void die(WorkerId worker)
    {
        std::erase_if(sent, [&](const auto& entry) { return ipc::ownerOf(entry.first) == worker; });
        for (auto entry = received.begin(); entry != received.end();) {
            auto& [id, holders] = *entry;
            if (ipc::ownerOf(id) != worker) {
                if (holders.erase(worker) == 0 || !holders.empty()) {
                    ++entry;
                    continue;
                }
                release(id);
            }
            entry = received.erase(entry);
        }
    }
};

ObjectId objectOf(WorkerId owner, std::uint64_t sequence) { return (sequence << 16) + owner; }

} // namespace

TEST(UsageCounts, AgreesWithThePlainTablesOverRandomHistories)
{
    constexpr int workers = 5;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const test::ExpectAssertions unbacked; // Objects of dead owners are counted without ever having been sent.
        std::mt19937 random(seed);
        const auto pick = [&](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
        UsageCounts counts;
        Model model;
        std::multiset<std::pair<ObjectId, std::uint32_t>> releases;
        const auto note = [&](const std::optional<UsageCounts::Release>& due) {
            if (due) releases.emplace(due->objectId, due->count);
        };
        for (int step = 0; step < 400; ++step) {
            const auto worker = static_cast<WorkerId>(pick(workers));
            const auto id = objectOf(static_cast<WorkerId>(pick(workers)), static_cast<std::uint64_t>(pick(4)));
            const int kind = pick(20);
            if (kind < 11) {
                std::vector<WorkerId> receivers;
                for (WorkerId receiver = 0; receiver < workers; ++receiver) {
                    if (pick(3) == 0) receivers.push_back(receiver);
                }
                for (const auto receiver : receivers) counts.countReceived(worker, id, receiver);
                if (ipc::ownerOf(id) == worker) note(counts.countSent(id));
                model.message(id, worker, receivers);
            } else if (kind < 19) {
                const auto held = model.received.find(id);
                if (held == model.received.end() || !held->second.contains(worker)) continue;
                const auto count = 1 + static_cast<std::uint32_t>(pick(static_cast<int>(held->second.at(worker))));
                std::optional<UsageCounts::Release> due;
                ASSERT_EQ(
                    counts.release(worker, id, static_cast<std::int32_t>(count), due), UsageCounts::Outcome::Done);
                note(due);
                model.drop(worker, id, count);
            } else {
                const auto part = static_cast<std::size_t>(1 + pick(3));
                do {
                    for (const auto& due : counts.workerDied(worker, part)) note(due);
                } while (counts.concerned(worker) > 0);
                model.die(worker);
            }
            ASSERT_EQ(releases, model.releases) << "seed " << seed << " step " << step;
        }
        for (int owner = 0; owner < workers; ++owner) {
            for (std::uint64_t sequence = 0; sequence < 4; ++sequence) {
                const auto id = objectOf(static_cast<WorkerId>(owner), sequence);
                const auto sent = model.sent.find(id);
                EXPECT_EQ(counts.sentCount(id), sent == model.sent.end() ? 0 : sent->second);
                std::map<WorkerId, std::uint32_t> held;
                for (const auto& receiver : counts.receivers(id)) held[receiver.workerId] = receiver.count;
                const auto expected = model.received.find(id);
                EXPECT_EQ(held, expected == model.received.end() ? decltype(held)() : expected->second);
            }
        }
        for (WorkerId worker = 0; worker < workers; ++worker) counts.workerDied(worker);
        EXPECT_EQ(counts.objectCount(), 0u) << "something of a dead worker is still counted";
    }
}

TEST(UsageCounts, ReportsWrongReleasesAndChangesNothing)
{
    const auto id = objectOf(2, 5);
    struct Row {
        WorkerId worker;
        ObjectId id;
        std::int32_t count;
        UsageCounts::Outcome outcome;
        const char* report;
    };
    const Row rows[] = {
        { 3, objectOf(2, 9), 1, UsageCounts::Outcome::NoEntry,
            "libs/core/ipc/dispatcher:229 onReferenceRelease ref != _referenceUsageCount.end()" },
        { 4, id, 1, UsageCounts::Outcome::NoEntry,
            "libs/core/ipc/dispatcher:235 onReferenceRelease count != ref->second.end()" },
        { 3, id, 3, UsageCounts::Outcome::BadCount,
            "libs/core/ipc/dispatcher:236 onReferenceRelease count->second >= usageCount" },
        { 3, id, -1, UsageCounts::Outcome::BadCount,
            "libs/core/ipc/dispatcher:236 onReferenceRelease count->second >= usageCount" },
        { 3, id, INT32_MIN, UsageCounts::Outcome::BadCount,
            "libs/core/ipc/dispatcher:236 onReferenceRelease count->second >= usageCount" },
    };
    for (const auto& row : rows) {
        UsageCounts counts;
        for (int i = 0; i < 2; ++i) {
            counts.countReceived(2, id, 3);
            counts.countSent(id);
        }
        const test::ExpectAssertions expected;
        std::optional<UsageCounts::Release> due;
        EXPECT_EQ(counts.release(row.worker, row.id, row.count, due), row.outcome);
        EXPECT_EQ(expected.reports(), std::vector<std::string> { row.report });
        EXPECT_FALSE(due);
        EXPECT_EQ(counts.receivers(id).front().count, 2u);
        EXPECT_EQ(counts.sentCount(id), 2u);
    }
}

TEST(UsageCounts, BoundsWhatOneSenderMakesItHold)
{
    constexpr std::size_t bound = 100;
    UsageCounts counts(bound);
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
    const test::ExpectAssertions unbacked; // Worker 1 listed objects that their owner never sent.
    counts.workerDied(3);
    EXPECT_TRUE(counts.canCount(1, others, receivers));
}
