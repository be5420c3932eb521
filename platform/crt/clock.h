// Clocks of the platform: a millisecond tick count and the processor's time stamp counter.
#pragma once

#include <cstdint>

uint32_t GetTickCount();          // milliseconds since an arbitrary start, wrapping
uint64_t ReadTimeStampCounter();  // cycles where the processor has a counter, else nanoseconds
