#include "support/system_bus.h"
#include <gtest/gtest.h>

test::LoginManager::LoginManager(const std::string& mode) : ChildProcess({ "/usr/bin/python3", LOGIN_MANAGER, mode })
{
    EXPECT_EQ(readLine(), "ready");
}
