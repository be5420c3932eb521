#include "base/resmanager.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "base/ResLibrary.h"
#include "base/file.h"
#include "platform/debug/debug_output.h"
#include "tests/base/reslibrary_fixture.h"

namespace {

std::string Path(const ResourceManager& manager, const std::string& key) {
    const char* value = manager.GetResourcePath(key.c_str());
    return value ? value : "<null>";
}

TEST(ResourceManager, LaterKeyWinsLookupIgnoresCaseAndValuesTakeSlashes) {
    TempDir dir;
    WriteWholeFile("resource.cfg",
                   "LIT lit\nTEXTURE_DATA ..\\data\\textures\\\nlit later/mixed\\path\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(Path(manager, "Lit"), "later/mixed/path");
    EXPECT_EQ(Path(manager, "texture_data"), "../data/textures/");
    EXPECT_EQ(Path(manager, "TEXTURE_DATAX"), "<null>");  // a prefix is not a match
    EXPECT_EQ(manager.GetResourcePath(nullptr), nullptr);
    const Texts texts = log.Take();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], "W: Failed to find resource TEXTURE_DATAX\n");
    EXPECT_EQ(texts[1].rfind("E512: ", 0), 0u);
}

TEST(ResourceManager, LineBreaksAndBlanksAreAllOneSeparator) {
    for (const char* layout : {"A 1\nB 2\nC 3\n", "A 1 B 2 C 3", "A\n1\nB\t2\r\n\r\nC\v3\f",
                               "  \n\t A   1\tB\n\n2 C\r3"}) {
        SCOPED_TRACE(layout);
        TempDir dir;
        WriteWholeFile("resource.cfg", layout);
        ReportLog log;
        ResourceManager manager;
        EXPECT_EQ(Path(manager, "A") + Path(manager, "B") + Path(manager, "C"), "123");
        EXPECT_EQ(log.texts, Texts{});
    }
    for (const char* empty : {"", " \n\t\r\n"}) {
        TempDir dir;
        WriteWholeFile("resource.cfg", empty);
        ReportLog log;
        ResourceManager manager;
        EXPECT_EQ(log.texts, Texts{});
    }
}

TEST(ResourceManager, OddTokenCountRaisesTheErrorWithTheLastToken) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "A 1\nB 2\nLONELY\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(log.Take(), (Texts{"E513: Failed to find second line in RESOURCE.CFG\nLONELY\n"}));
    // With a handler that returns, the pairs before it stand.
    EXPECT_EQ(Path(manager, "A") + Path(manager, "B"), "12");
}

TEST(ResourceManager, MissingFileAlertsAndLeavesItEmpty) {
    TempDir dir;
    DebugCapture capture;
    ReportLog log;
    {
        ResourceManager manager;
        EXPECT_EQ(manager.GetResourcePath("LIT"), nullptr);
    }
    EXPECT_NE(capture.Text().find("ResourceManager Destructor"), std::string::npos);
    // An explicit path reads that file, and alerts with the same text when it is missing.
    WriteWholeFile("other.cfg", "LIT scripts");
    ResourceManager other(dir.File("other.cfg").c_str());
    EXPECT_EQ(Path(other, "LIT"), "scripts");
    ResourceManager missing("nowhere.cfg");
    EXPECT_EQ(log.Take(),
              (Texts{"A: Could not open RESOURCE.CFG\n", "W: Failed to find resource LIT\n",
                     "A: Could not open RESOURCE.CFG\n"}));
}

TEST(ResourceManager, OverlongTokensAreCutAt399AndTheirTailSkipped) {
    TempDir dir;
    // 399 characters stay whole, 400 lose one; the tails must not be read as further tokens,
    // or every pair behind them shifts and the count turns odd.
    WriteWholeFile("resource.cfg", std::string(1000, 'k') + " short\nLONG " +
                                       std::string(1000, 'v') + "\n" + std::string(399, 'a') +
                                       " fits " + std::string(400, 'b') + " cut\nLAST last\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(Path(manager, std::string(399, 'k')), "short");
    EXPECT_EQ(Path(manager, "LONG"), std::string(399, 'v'));
    EXPECT_EQ(Path(manager, std::string(399, 'a')), "fits");
    EXPECT_EQ(Path(manager, std::string(399, 'b')), "cut");
    EXPECT_EQ(Path(manager, "LAST"), "last");
    EXPECT_EQ(log.texts, Texts{});
}

TEST(ResourceManager, BinaryGarbageIsReadWithoutHarm) {
    // Bytes 0, 0x80 and 0xFF inside a token (0xFF must not read as the end of the file) keep the
    // pairs behind it in step.
    {
        TempDir dir;
        std::string token = "x";
        for (int i = 0; i < 600; ++i) token += char(i % 3 == 0 ? 0xFF : i % 3 == 1 ? 0x80 : 0);
        WriteWholeFile("resource.cfg", token + " value\nKEY after\n");
        ReportLog log;
        ResourceManager manager;
        EXPECT_EQ(Path(manager, "x\xFF\x80"), "value");  // the first zero byte ends the stored key
        EXPECT_EQ(Path(manager, "KEY"), "after");
        EXPECT_EQ(log.texts, Texts{});
    }
    // Random files: at most one error, and only the odd-count one; the sanitizers watch the rest.
    std::mt19937 random(20240611);
    for (int round = 0; round < 200; ++round) {
        TempDir dir;
        std::string bytes(random() % 3000, '\0');
        for (char& byte : bytes) byte = char(random());
        WriteWholeFile("resource.cfg", bytes);
        ReportLog log;
        ResourceManager().GetResourcePath("LIT");
        int errors = 0;
        for (const std::string& text : log.texts) {
            if (text[0] != 'E') continue;
            ++errors;
            EXPECT_EQ(text.rfind("E513: Failed to find second line in RESOURCE.CFG\n", 0), 0u);
        }
        EXPECT_LE(errors, 1) << "round " << round;
    }
}

TEST(ResourceManager, LibraryKeysAreExactAndLibrariesAreKept) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "MAPS maps\nSOUNDS sounds\nEMPTY nothing-here\nLIB lib\n");
    WriteVolume("maps", 1, {{"a.txt", 1, "from maps"}});
    WriteVolume("sounds", 1, {{"b.txt", 1, "from sounds"}});
    WriteVolume("lib", 1, {{"a", 1, "a"}});
    std::remove("lib0001.RFD");
    ReportLog log;
    {
        ResourceManager manager;
        EXPECT_EQ(manager.GetLibrary("maps", 0, false, true), nullptr);  // keys are exact here
        EXPECT_EQ(log.texts, Texts{});                                   // and a miss says nothing
        ResourceLibrary* maps = manager.GetLibrary("MAPS", 0, false, true);
        ASSERT_NE(maps, nullptr);
        EXPECT_FALSE(maps->IsCached());
        EXPECT_EQ(manager.GetLibrary("MAPS", 0, true, false), maps);
        EXPECT_FALSE(maps->IsCached());  // the second call's flags change nothing
        maps->Close();
        EXPECT_EQ(manager.GetLibrary("MAPS", 0, false, false), maps);
        EXPECT_TRUE(maps->IsOpen());

        File* file = manager.OpenFile("SOUNDS", "B.TXT", "rb", false);
        ASSERT_NE(file, nullptr);
        char text[32] = {};
        EXPECT_EQ(file->Read(text, sizeof text), 11u);
        EXPECT_STREQ(text, "from sounds");
        manager.CloseFile(file);
        EXPECT_EQ(file, nullptr);
        EXPECT_EQ(manager.OpenFile("NOKEY", "b.txt", "rb", false), nullptr);

        // A root without volumes opens and serves loose files; one with a volume whose data
        // file is missing comes back not open.
        ResourceLibrary* empty = manager.GetLibrary("EMPTY", 0, false, true);
        ASSERT_NE(empty, nullptr);
        EXPECT_TRUE(empty->IsOpen());
        manager.CloseLibrary(empty);
        ResourceLibrary* broken = manager.GetLibrary("LIB", 0, false, false);
        ASSERT_NE(broken, nullptr);
        EXPECT_FALSE(broken->IsOpen());
        manager.CloseLibrary("LIB");
        manager.CloseLibrary("UNKNOWN");  // does nothing
        EXPECT_EQ(log.Take(),
                  (Texts{"W: ResourceLibrary maps Has not been used since it was opened",
                         "W: ResourceLibrary nothing-here Has not been used since it was opened"}));
    }
    // Left open: named once each, newest first, and closed (MAPS, opened again and not used
    // since, says so as it closes).
    EXPECT_EQ(log.texts,
              (Texts{"W: Resource [SOUNDS] left open\n", "W: Resource [MAPS] left open\n",
                     "W: ResourceLibrary maps Has not been used since it was opened"}));
    EXPECT_EQ(FileOpenCount(), 0u);
}

}  // namespace
