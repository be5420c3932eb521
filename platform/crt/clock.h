// Clocks of the platform: a millisecond tick count, the processor's time stamp counter, and the
// thread's sleep.
#pragma once

#include <cstdint>

uint32_t GetTickCount();          // milliseconds since an arbitrary start, wrapping
uint64_t ReadTimeStampCounter();  // cycles where the processor has a counter, else nanoseconds

// Waits the given milliseconds. Tests switch waiting off so that device opens and closes, which
// pause for seconds, run at once; the previous setting is returned.
void Sleep(uint32_t milliseconds);
bool SetSleepInstant(bool instant);
