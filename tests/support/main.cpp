// Entry point of every test executable: a broken invariant or an unhandled exception fails the test that caused it,
// unless the test expects it (support/expectations.h).
#include "support/expectations.h"
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    test::installFailureHooks();
    return RUN_ALL_TESTS();
}
