#include "base/services.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/memory.h"

TEST(Services, CopiesAreOwnedAndWholeAndAlignedBlocksAreWhollyUsable) {
    EXPECT_EQ(CopyString(nullptr), nullptr);
    EXPECT_EQ(CopyWideString(nullptr), nullptr);
    char text[] = "maps\\test.vbf";
    char* copy = CopyString(text);
    text[0] = 'X';  // the copy must not share the caller's buffer
    EXPECT_STREQ(copy, "maps\\test.vbf");
    FREE(copy);
    // Units with a high byte catch a copy that narrows to 8 bits.
    const char16_t wide[] = u"A\u00e9\u4e2d\xfffe!";
    char16_t* wideCopy = CopyWideString(wide);
    EXPECT_EQ(std::memcmp(wideCopy, wide, sizeof wide), 0);
    FREE(wideCopy);

    // All live at once and every byte written, so the sanitizer build sees a block too short.
    std::vector<unsigned char*> blocks;
    for (size_t size : {size_t(0), size_t(1), size_t(31), size_t(33), size_t(4095), (size_t(1) << 24) + 3}) {
        blocks.push_back(static_cast<unsigned char*>(AlignedAlloc(size)));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks.back()) % 32, 0u) << size;
        std::memset(blocks.back(), 0xA5, size);
    }
    for (unsigned char* block : blocks) AlignedFree(block);
    const double cycles = ReadCycleCounter();  // the low 32 bits, as a number
    EXPECT_TRUE(cycles >= 0.0 && cycles < 4294967296.0 && cycles == std::floor(cycles));
}
