// Entry point of every test executable: a broken invariant or an unhandled exception fails the test that caused it,
// unless the test expects it (support/expectations.h).
#include "foundation/logging/category_manager.h"
#include "foundation/logging/console_sink.h"
#include "support/expectations.h"
#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    test::installFailureHooks();
    // CORE_TEST_LOG=7 shows all log messages of a test that is being looked into.
    if (const char* priority = std::getenv("CORE_TEST_LOG")) {
        fn::logging::CategoryManager::instance().addSink(
            fn::makeAuto<fn::logging::ConsoleSink>(fn::String(priority).toInt()));
    }
    return RUN_ALL_TESTS();
}
