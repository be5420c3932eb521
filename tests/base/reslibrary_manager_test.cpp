#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ResLibrary.h"
#include "base/file.h"
#include "base/resmanager.h"
#include "tests/base/reslibrary_fixture.h"

namespace {

TEST(ResourceManagerLibraries, KeysAreExactAndLibrariesAreKept) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "MAPS maps\nSOUNDS sounds\nEMPTY nothing-here\n");
    WriteVolume("maps", 1, {{"a.txt", 1, "from maps"}});
    WriteVolume("sounds", 1, {{"b.txt", 1, "from sounds"}});
    WarningLog log;
    {
        ResourceManager manager;
        EXPECT_EQ(manager.GetLibrary("maps", 0, false, true), nullptr);  // keys are exact here
        EXPECT_TRUE(log.texts.empty());  // and a miss says nothing
        ResourceLibrary* maps = manager.GetLibrary("MAPS", 0, false, true);
        ASSERT_NE(maps, nullptr);
        EXPECT_TRUE(maps->IsOpen());
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

        // A root without volumes opens and serves loose files.
        ResourceLibrary* empty = manager.GetLibrary("EMPTY", 0, false, true);
        ASSERT_NE(empty, nullptr);
        EXPECT_TRUE(empty->IsOpen());
        manager.CloseLibrary(empty);
        manager.CloseLibrary("UNKNOWN");  // does nothing
        log.texts.clear();
    }
    // Left open: named once each, newest first, and closed (MAPS, opened again and not used
    // since, says so as it closes).
    EXPECT_EQ(log.texts,
              (std::vector<std::string>{"Resource [SOUNDS] left open\n",
                                        "Resource [MAPS] left open\n",
                                        "ResourceLibrary maps Has not been used since it was opened"}));
    EXPECT_EQ(FileOpenCount(), 0u);
}

TEST(ResourceManagerLibraries, MissingVolumeGivesALibraryNotOpen) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "LIB lib\n");
    WriteVolume("lib", 1, {{"a", 1, "a"}});
    std::remove("lib0001.RFD");
    WarningLog log;
    ResourceManager manager;
    ResourceLibrary* library = manager.GetLibrary("LIB", 0, false, false);
    ASSERT_NE(library, nullptr);
    EXPECT_FALSE(library->IsOpen());
    manager.CloseLibrary("LIB");
    library = manager.GetLibrary("LIB", 0, false, false);
    manager.CloseLibrary(library);
    EXPECT_TRUE(log.texts.empty());
}

}  // namespace
