#include "platform/crt/clock.h"

#include <chrono>
#include <ctime>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace {

bool SleepInstant = false;

}  // namespace

uint32_t GetTickCount() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint32_t(uint64_t(now.tv_sec) * 1000u + uint64_t(now.tv_nsec) / 1000000u);
}

uint64_t ReadTimeStampCounter() {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000u + uint64_t(now.tv_nsec);
#endif
}

void Sleep(uint32_t milliseconds) {
    if (!SleepInstant) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool SetSleepInstant(bool instant) {
    bool previous = SleepInstant;
    SleepInstant = instant;
    return previous;
}
