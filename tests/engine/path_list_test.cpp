#include "engine/scene/path_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> Folders(const PathList& list) {
    std::vector<std::string> folders;
    for (const PathNode* node = list.head; node; node = node->next) folders.push_back(node->value);
    return folders;
}

using Strings = std::vector<std::string>;

TEST(PathList, HandlesCountUpAndAreNeverReused) {
    PathList list;
    EXPECT_EQ(list.lastId, -1);
    EXPECT_EQ(list.Push("a"), 0);
    EXPECT_EQ(list.Push("b"), 1);
    list.Pop();
    EXPECT_EQ(Folders(list), Strings{"a"});
    EXPECT_EQ(list.Push("c"), 2);
    list.Pop();
    list.Pop();
    EXPECT_EQ(list.head, nullptr);  // one node popped leaves the list empty
    EXPECT_EQ(list.Push("d"), 3);
    EXPECT_EQ(list.head->enabled, 1);
}

TEST(PathList, RemoveAndInsertBeforeKeepTheOrder) {
    PathList list;
    const int32_t a = list.Push("a");
    list.Push("b");
    const int32_t c = list.Push("c");
    list.Remove(a);
    EXPECT_EQ(Folders(list), (Strings{"b", "c"}));
    list.Remove(99);  // no such handle
    EXPECT_EQ(Folders(list), (Strings{"b", "c"}));

    const int32_t first = list.head->id;
    EXPECT_EQ(list.InsertBefore("x", first), 3);
    EXPECT_EQ(Folders(list), (Strings{"x", "b", "c"}));
    EXPECT_EQ(list.InsertBefore("y", c), 4);  // before the last
    EXPECT_EQ(Folders(list), (Strings{"x", "b", "y", "c"}));
    list.Remove(c);  // the last
    list.Remove(4);  // from the middle
    EXPECT_EQ(Folders(list), (Strings{"x", "b"}));

    // A node with nowhere to go spends its handle and is freed: the sanitizer build checks that.
    EXPECT_EQ(list.InsertBefore("z", 42), 5);
    EXPECT_EQ(Folders(list), (Strings{"x", "b"}));
    EXPECT_EQ(list.Push("w"), 6);
}

TEST(PathList, EmptyListOperationsOnlyReportToTheDebugOutput) {
    DebugCapture capture;
    PathList list;
    list.Pop();
    list.Remove(0);
    EXPECT_EQ(list.InsertBefore("a", 0), -1);
    EXPECT_EQ(capture.Pieces(), (Strings{"Attempting to pop from an empty stack.\n",
                                         "Attempting to delete from an empty list.\n",
                                         "Attempting to insert into an empty list.\n"}));
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.Push("b"), 1);  // the refused node had spent handle 0

    capture.Clear();
    list.Clear();
    EXPECT_EQ(list.head, nullptr);
    list.Clear();  // clearing an empty list is quiet
    EXPECT_TRUE(capture.Pieces().empty());
}

TEST(PathList, EnableAndDisableSelectTheFoldersSearched) {
    TempDir dir;
    std::filesystem::create_directory("one");
    std::filesystem::create_directory("two");
    std::filesystem::create_directory("three");
    WriteWholeFile("one/a.tga", "1");
    WriteWholeFile("two/a.tga", "2");
    WriteWholeFile("three/only.tga", "3");
    const std::string one = dir.File("one"), two = dir.File("two"), three = dir.File("three");

    PathList list;
    char out[PathBufferSize] = "untouched";
    EXPECT_EQ(list.FindFile("a.tga", out), 0);  // empty list
    const int32_t first = list.Push(one.c_str());
    list.Push(two.c_str());
    list.Push(three.c_str());

    ASSERT_EQ(list.FindFile("a.tga", out), 1);
    EXPECT_EQ(std::string(out), one + "/a.tga");  // the first of two folders wins
    list.Disable(first);
    ASSERT_EQ(list.FindFile("a.tga", out), 1);
    EXPECT_EQ(std::string(out), two + "/a.tga");
    list.Enable(first);
    ASSERT_EQ(list.FindFile("a.tga", out), 1);
    EXPECT_EQ(std::string(out), one + "/a.tga");

    list.DisableAll();
    std::snprintf(out, sizeof out, "untouched");
    EXPECT_EQ(list.FindFile("a.tga", out), 0);
    EXPECT_STREQ(out, "untouched");
    list.EnableAll();
    EXPECT_EQ(list.FindFile("only.tga", out), 1);
    EXPECT_EQ(list.FindFile("missing.tga", out), 0);
}

TEST(PathList, FindFileTakesWindowsNames) {
    TempDir dir;
    std::filesystem::create_directories("Textures/Sub");
    WriteWholeFile("Textures/Grass.TGA", "g");
    WriteWholeFile("Textures/Sub/Rock.tga", "r");
    const std::string folder = dir.File("Textures");
    const std::string windowsFolder = dir.Path() + "\\Textures\\";

    PathList list;
    list.Push(windowsFolder.c_str());
    char out[PathBufferSize];
    ASSERT_EQ(list.FindFile("grass.tga", out), 1);
    EXPECT_EQ(std::string(out), folder + "/Grass.TGA");  // the real name, one separator
    ASSERT_EQ(list.FindFile("sub\\ROCK.tga", out), 1);
    EXPECT_EQ(std::string(out), folder + "/Sub/Rock.tga");
}

TEST(PathList, APathLongerThanTheBufferIsNotFound) {
    TempDir dir;
    // A name that fits the file system but makes the whole path longer than the buffer.
    const std::string name(std::max<size_t>(PathBufferSize - dir.Path().size(), 1) + 4, 'n');
    WriteWholeFile(name, "x");
    ASSERT_TRUE(std::filesystem::exists(name));
    PathList list;
    list.Push(dir.Path().c_str());
    char* out = new char[PathBufferSize];  // exact size, so the sanitizer sees any overrun
    EXPECT_EQ(list.FindFile(name.c_str(), out), 0);
    delete[] out;
}

}  // namespace
