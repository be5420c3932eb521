#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/memory.h"
#include "base/services.h"

TEST(Services, CopyStringMakesAnOwnedCopy) {
    EXPECT_EQ(CopyString(nullptr), nullptr);

    const char empty[] = "";
    char* copy = CopyString(empty);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, empty);
    EXPECT_EQ(copy[0], '\0');
    FREE(copy);

    char text[] = "maps\\test.vbf";
    copy = CopyString(text);
    ASSERT_NE(copy, nullptr);
    text[0] = 'X';  // the copy must not share the caller's buffer
    EXPECT_STREQ(copy, "maps\\test.vbf");
    FREE(copy);
}

TEST(Services, CopyWideStringCopiesEverySixteenBitUnit) {
    EXPECT_EQ(CopyWideString(nullptr), nullptr);

    // Units with a high byte catch a copy that narrows to 8 bits; the sanitizer build catches a
    // block shorter than length * 2 + 2 bytes.
    const char16_t text[] = u"A\u00e9\u4e2d\xfffe!";
    const size_t bytes = sizeof text;
    char16_t* copy = CopyWideString(text);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, text);
    EXPECT_EQ(std::memcmp(copy, text, bytes), 0);
    FREE(copy);

    copy = CopyWideString(u"");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy[0], u'\0');
    FREE(copy);
}

TEST(Services, AlignedBlocksAreMultiplesOf32AndWhollyUsable) {
    std::vector<size_t> sizes;
    for (size_t size = 0; size <= 100; ++size) sizes.push_back(size);
    for (size_t size : {size_t(4095), size_t(65536), size_t(1) << 20, (size_t(1) << 24) + 3})
        sizes.push_back(size);

    // All blocks live at once, then freed in an order unlike their allocation; writing every
    // byte lets the sanitizer build see a block that is too short, and the leak check at exit
    // sees a block that AlignedFree did not release.
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
        double cycles = ReadCycleCounter();
        ASSERT_GE(cycles, 0.0);
        ASSERT_LT(cycles, 4294967296.0);
        ASSERT_EQ(cycles, std::floor(cycles));
    }
}
