#include "base/services.h"

#include <gtest/gtest.h>

#include <cstring>

#include "base/memory.h"

TEST(Services, CopiesAreOwnedAndWhole) {
    EXPECT_EQ(CopyString(nullptr), nullptr);
    char text[] = "maps\\test.vbf";
    char* copy = CopyString(text);
    text[0] = 'X';  // the copy must not share the caller's buffer
    EXPECT_STREQ(copy, "maps\\test.vbf");
    FREE(copy);
    const char16_t wide[] = u"A\u00e9\u4e2d\xfffe!";  // high bytes catch a copy that narrows to 8 bits
    char16_t* wideCopy = CopyWideString(wide);
    EXPECT_EQ(std::memcmp(wideCopy, wide, sizeof wide), 0);
    FREE(wideCopy);
}
