#include "platform/crt/version.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstring>

namespace {

OSVERSIONINFOEXA Query(uint32_t size, bool* ok) {
    OSVERSIONINFOEXA info;
    std::memset(&info, 0xAB, sizeof info);
    info.base.dwOSVersionInfoSize = size;
    *ok = GetVersionExA(&info.base);
    return info;
}

TEST(Version, ReportsTheKernelAsTheNtFamilyInEitherRecordSizeOnly) {
    struct utsname name;
    ASSERT_EQ(uname(&name), 0);
    unsigned major = 0, minor = 0;
    ASSERT_EQ(std::sscanf(name.release, "%u.%u", &major, &minor), 2);
    for (uint32_t size : {148u, 156u}) {
        bool ok = false;
        OSVERSIONINFOEXA info = Query(size, &ok);
        ASSERT_TRUE(ok) << size;
        EXPECT_EQ(info.base.dwMajorVersion, major);
        EXPECT_EQ(info.base.dwMinorVersion, minor);
        EXPECT_EQ(info.base.dwPlatformId, uint32_t(VER_PLATFORM_WIN32_NT));
        EXPECT_EQ(info.base.szCSDVersion[0], '\0');
        // The short record ends before the service pack: nothing written past it.
        EXPECT_EQ(info.wServicePackMajor, size == 156 ? 0u : 0xABABu);
    }
    for (uint32_t size : {0u, 147u, 152u, 157u, 0xFFFFFFFFu}) {
        bool ok = true;
        EXPECT_EQ(Query(size, &ok).base.dwMajorVersion, 0xABABABABu);
        EXPECT_FALSE(ok) << size;
    }
    EXPECT_FALSE(GetVersionExA(nullptr));
}

}  // namespace
