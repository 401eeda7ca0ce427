// What can break here: an object deleted twice or revived while it dies, a weak link that outlives its target.
#include "foundation/weak_ptr.h"
#include <gtest/gtest.h>

namespace {

struct Tracked : fn::RefCountedObject {
    explicit Tracked(int& deletions) : _deletions(deletions) { }
    ~Tracked() override
    {
        ++_deletions;
        const fn::AutoPtr<Tracked> late(this); // What a destructor that hands itself out does.
        EXPECT_FALSE(tryRetain());
    }
    int& _deletions;
};

TEST(RefCounted, ADyingObjectIsNeitherRevivedNorDeletedTwice)
{
    int deletions = 0;
    auto object = fn::makeAuto<Tracked>(deletions);
    EXPECT_EQ(object->referenceCount(), 1u);
    const fn::WeakPtr<Tracked> weak(object);
    auto second = weak.lock();
    object.reset();
    EXPECT_EQ(deletions, 0);
    second = nullptr;
    EXPECT_EQ(deletions, 1);
    EXPECT_FALSE(weak.lock());
}

struct Deferred : fn::RefCountedObject {
    void deleteInstance() override { ++requests; }
    int requests = 0;
    ~Deferred() override = default;
};

TEST(RefCounted, ADeferredDeletionIsAskedForOnceAndCountsAsDeath)
{
    auto* object = new Deferred;
    EXPECT_FALSE(object->tryRetain()); // Nobody has held it yet.
    fn::WeakPtr<Deferred> weak(object);
    fn::AutoPtr<Deferred>(object).reset();
    EXPECT_EQ(object->requests, 1);
    EXPECT_FALSE(weak.lock());
    fn::AutoPtr<Deferred>(object).reset();
    EXPECT_EQ(object->requests, 1);
    delete object;
    EXPECT_FALSE(weak.lock());
}

} // namespace
