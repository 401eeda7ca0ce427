#include "platform/operating_system_version.h"
#include <fstream>
#include <gtest/gtest.h>

namespace {

TEST(OperatingSystemVersion, IsTheKernelsAndOnlyForARecordOfTheRightSize)
{
    platform::OSVERSIONINFOEXW information {};
    EXPECT_EQ(platform::GetVersionExW(&information), 0);
    information.dwOSVersionInfoSize = 284;
    information.szCSDVersion[0] = u'x';
    ASSERT_NE(platform::GetVersionExW(&information), 0);
    std::string release;
    std::ifstream("/proc/sys/kernel/osrelease") >> release;
    EXPECT_TRUE(release.starts_with(fmt::format("{}.{}", information.dwMajorVersion, information.dwMinorVersion)));
    EXPECT_EQ(information.szCSDVersion[0], u'\0');
    EXPECT_EQ(information.dwPlatformId, 2U);
}

} // namespace
