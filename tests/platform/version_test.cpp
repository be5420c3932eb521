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

TEST(Version, ReportsTheKernelAsTheNtFamily) {
    struct utsname name;
    ASSERT_EQ(uname(&name), 0);
    unsigned major = 0, minor = 0;
    ASSERT_EQ(std::sscanf(name.release, "%u.%u", &major, &minor), 2);

    for (uint32_t size : {148u, 156u}) {
        bool ok = false;
        OSVERSIONINFOEXA info = Query(size, &ok);
        ASSERT_TRUE(ok) << size;
        EXPECT_EQ(info.base.dwOSVersionInfoSize, size);
        EXPECT_EQ(info.base.dwMajorVersion, major);
        EXPECT_EQ(info.base.dwMinorVersion, minor);
        EXPECT_EQ(info.base.dwPlatformId, uint32_t(VER_PLATFORM_WIN32_NT));
        EXPECT_EQ(info.base.szCSDVersion[0], '\0');
        if (size == 156)
            EXPECT_EQ(info.wServicePackMajor, 0u);
        else
            EXPECT_EQ(info.wServicePackMajor, 0xABABu);  // the short record ends before it
    }
}

TEST(Version, RefusesOtherSizesAndNull) {
    for (uint32_t size : {0u, 1u, 147u, 152u, 157u, 0xFFFFFFFFu}) {
        bool ok = true;
        OSVERSIONINFOEXA info = Query(size, &ok);
        EXPECT_FALSE(ok) << size;
        EXPECT_EQ(info.base.dwMajorVersion, 0xABABABABu);
    }
    EXPECT_FALSE(GetVersionExA(nullptr));
}

TEST(Version, StagingRefusesSizesAndReportsItsValues) {
    StagedVersion staged = {156, 4, 10, VER_PLATFORM_WIN32_WINDOWS};
    StageVersionForTesting(&staged);
    bool ok = true;
    Query(156, &ok);
    EXPECT_FALSE(ok);
    OSVERSIONINFOEXA info = Query(148, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(info.base.dwMajorVersion, 4u);
    EXPECT_EQ(info.base.dwMinorVersion, 10u);
    EXPECT_EQ(info.base.dwPlatformId, 1u);
    uint32_t sizes[1] = {};
    EXPECT_EQ(StagedVersionQueries(sizes, 1), 2u);
    EXPECT_EQ(sizes[0], 156u);

    staged.refuseSize = 1;
    StageVersionForTesting(&staged);
    EXPECT_EQ(StagedVersionQueries(sizes, 1), 0u);
    Query(156, &ok);
    EXPECT_FALSE(ok);
    Query(148, &ok);
    EXPECT_FALSE(ok);

    StageVersionForTesting(nullptr);
    info = Query(148, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(info.base.dwPlatformId, uint32_t(VER_PLATFORM_WIN32_NT));
}

}  // namespace
