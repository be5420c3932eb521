#include "base/services.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/memory.h"

TEST(Services, CopiesAreOwnedAndWhole) {
    EXPECT_EQ(CopyString(nullptr), nullptr);
    EXPECT_EQ(CopyWideString(nullptr), nullptr);
    char text[] = "maps\\test.vbf";
    char* copy = CopyString(text);
    text[0] = 'X';  // the copy must not share the caller's buffer
    EXPECT_STREQ(copy, "maps\\test.vbf");
    FREE(copy);
    copy = CopyString("");
    EXPECT_STREQ(copy, "");
    FREE(copy);

    // Units with a high byte catch a copy that narrows to 8 bits; the sanitizer build catches a
    // block shorter than length * 2 + 2 bytes.
    const char16_t wide[] = u"A\u00e9\u4e2d\xfffe!";
    char16_t* wideCopy = CopyWideString(wide);
    ASSERT_NE(wideCopy, nullptr);
    EXPECT_EQ(std::memcmp(wideCopy, wide, sizeof wide), 0);
    FREE(wideCopy);
}

TEST(Services, AlignedBlocksAreMultiplesOf32AndWhollyUsable) {
    std::vector<size_t> sizes;
    for (size_t size = 0; size <= 100; ++size) sizes.push_back(size);
    for (size_t size : {size_t(4095), size_t(65536), size_t(1) << 20, (size_t(1) << 24) + 3})
        sizes.push_back(size);

    // All live at once, then freed out of order; every byte is written so the sanitizer build
    // sees a block too short, and its leak check a block that AlignedFree did not release.
    std::vector<unsigned char*> blocks;
    for (size_t size : sizes) {
        auto* p = static_cast<unsigned char*>(AlignedAlloc(size));
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 32, 0u) << size;
        std::memset(p, 0xA5, size);
        blocks.push_back(p);
    }
    for (size_t i = 0; i < blocks.size(); i += 2) AlignedFree(blocks[i]);
    for (size_t i = 1; i < blocks.size(); i += 2) AlignedFree(blocks[i]);
}

TEST(Services, CycleCounterIsTheLow32BitsAsANumber) {
    for (int i = 0; i < 1000; ++i) {
        const double cycles = ReadCycleCounter();
        ASSERT_GE(cycles, 0.0);
        ASSERT_LT(cycles, 4294967296.0);
        ASSERT_EQ(cycles, std::floor(cycles));
    }
}
