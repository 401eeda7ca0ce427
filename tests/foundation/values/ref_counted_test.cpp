// What can break here: an object deleted twice or revived while it dies, a weak link that outlives its target.
#include "base/weak_ptr.h"
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
    const fn::WeakPtr<Tracked> weak(object);
    auto second = weak.lock();
    object.reset();
    EXPECT_EQ(deletions, 0);
    second = nullptr;
    EXPECT_EQ(deletions, 1);
    EXPECT_FALSE(weak.lock());
}

} // namespace
