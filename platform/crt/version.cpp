#include "platform/crt/version.h"

#include <sys/utsname.h>

#include <cstdlib>
#include <cstring>

static bool Staged = false;
static StagedVersion StagedValues;
static uint32_t QueriedSizes[8];
static uint32_t QueryCount = 0;

void StageVersionForTesting(const StagedVersion* staged) {
    Staged = staged != nullptr;
    if (staged) StagedValues = *staged;
    QueryCount = 0;
}

uint32_t StagedVersionQueries(uint32_t* sizes, uint32_t capacity) {
    uint32_t kept = QueryCount < 8 ? QueryCount : 8;
    for (uint32_t i = 0; i < kept && i < capacity; ++i) sizes[i] = QueriedSizes[i];
    return QueryCount;
}

// Reads "major.minor.patch..." from the kernel's release text; missing numbers stay 0.
static void KernelVersion(uint32_t& major, uint32_t& minor, uint32_t& build) {
    major = minor = build = 0;
    struct utsname name;
    if (uname(&name) != 0) return;
    name.release[sizeof name.release - 1] = '\0';
    uint32_t* parts[3] = {&major, &minor, &build};
    const char* cursor = name.release;
    for (uint32_t*& part : parts) {
        char* end = nullptr;
        unsigned long value = std::strtoul(cursor, &end, 10);
        if (end == cursor) return;
        *part = uint32_t(value);
        if (*end != '.') return;
        cursor = end + 1;
    }
}

bool GetVersionExA(OSVERSIONINFOA* info) {
    if (!info) return false;
    uint32_t size = info->dwOSVersionInfoSize;
    if (Staged) {
        if (QueryCount < 8) QueriedSizes[QueryCount] = size;
        ++QueryCount;
    }
    if (size != sizeof(OSVERSIONINFOA) && size != sizeof(OSVERSIONINFOEXA)) return false;
    if (Staged && (StagedValues.refuseSize == 1 || StagedValues.refuseSize == size)) return false;

    uint32_t major, minor, build, platformId;
    if (Staged) {
        major = StagedValues.major;
        minor = StagedValues.minor;
        build = 0;
        platformId = StagedValues.platformId;
    } else {
        KernelVersion(major, minor, build);
        platformId = VER_PLATFORM_WIN32_NT;
    }
    info->dwMajorVersion = major;
    info->dwMinorVersion = minor;
    info->dwBuildNumber = build;
    info->dwPlatformId = platformId;
    std::memset(info->szCSDVersion, 0, sizeof info->szCSDVersion);
    if (size == sizeof(OSVERSIONINFOEXA)) {
        // The caller's record is the longer form, whose first member is this one.
        OSVERSIONINFOEXA* extended = reinterpret_cast<OSVERSIONINFOEXA*>(info);
        extended->wServicePackMajor = 0;
        extended->wServicePackMinor = 0;
        extended->wSuiteMask = 0;
        extended->wProductType = 1;  // a workstation
        extended->wReserved = 0;
    }
    return true;
}
