#include "platform/crt/version.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstring>

namespace {

// The kernel's release as the NT family's version, in either record size and no other; the short
// record ends before the service pack, so nothing is written past it.
TEST(Version, ReportsTheKernelInEitherRecordSizeOnly) {
    struct utsname name;
    ASSERT_EQ(uname(&name), 0);
    unsigned major = 0, minor = 0;
    ASSERT_EQ(std::sscanf(name.release, "%u.%u", &major, &minor), 2);
    for (uint32_t size : {148u, 156u, 0u, 147u, 152u, 157u, 0xFFFFFFFFu}) {
        const bool fits = size == 148 || size == 156;
        OSVERSIONINFOEXA info;
        std::memset(&info, 0xAB, sizeof info);
        info.base.dwOSVersionInfoSize = size;
        EXPECT_EQ(bool(GetVersionExA(&info.base)), fits) << size;
        EXPECT_EQ(info.base.dwMajorVersion, fits ? major : 0xABABABABu) << size;
        if (!fits) continue;
        EXPECT_EQ(info.base.dwMinorVersion, minor);
        EXPECT_EQ(info.base.dwPlatformId, uint32_t(VER_PLATFORM_WIN32_NT));
        EXPECT_EQ(info.wServicePackMajor, size == 156 ? 0u : 0xABABu);
    }
    EXPECT_FALSE(GetVersionExA(nullptr));
}

}  // namespace
