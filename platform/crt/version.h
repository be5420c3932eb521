// Stand-in for the operating system's version query, with the published record layouts.
#pragma once

#include <cstdint>

struct OSVERSIONINFOA {
    uint32_t dwOSVersionInfoSize;
    uint32_t dwMajorVersion;
    uint32_t dwMinorVersion;
    uint32_t dwBuildNumber;
    uint32_t dwPlatformId;
    char szCSDVersion[128];
};
static_assert(sizeof(OSVERSIONINFOA) == 148);

struct OSVERSIONINFOEXA {
    OSVERSIONINFOA base;
    uint16_t wServicePackMajor;
    uint16_t wServicePackMinor;
    uint16_t wSuiteMask;
    uint8_t wProductType;
    uint8_t wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXA) == 156);

enum : uint32_t {
    VER_PLATFORM_WIN32s = 0,
    VER_PLATFORM_WIN32_WINDOWS = 1,
    VER_PLATFORM_WIN32_NT = 2,
};

// Fills the record whose first word gives its size (148 or 156); false for any other size.
// Here the running kernel reports as the NT family with its own major and minor version.
bool GetVersionExA(OSVERSIONINFOA* info);

// Tests stage what the query answers: a record size it refuses, and the values it reports for
// the sizes it accepts. Null goes back to the running kernel.
struct StagedVersion {
    uint32_t refuseSize;  // 0: refuse none; 1: refuse every size; else refuse that size only
    uint32_t major, minor, platformId;
};
void StageVersionForTesting(const StagedVersion* staged);
// The record sizes asked for since the last staging, oldest first: copies up to capacity of them
// and returns how many calls there were.
uint32_t StagedVersionQueries(uint32_t* sizes, uint32_t capacity);
