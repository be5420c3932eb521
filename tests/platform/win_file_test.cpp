#include "platform/crt/win_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "tests/support/temp_dir.h"

namespace {

HANDLE Open(const char* name, uint32_t disposition, uint32_t access = GENERIC_WRITE) {
    return CreateFileA(name, access, FILE_SHARE_READ, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_RANDOM_ACCESS, nullptr);
}

void WriteAll(const char* name, uint32_t disposition, const std::string& bytes) {
    HANDLE file = Open(name, disposition);
    uint32_t done = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), uint32_t(bytes.size()), &done, nullptr)) << name;
    EXPECT_EQ(done, bytes.size());
    EXPECT_TRUE(CloseHandle(file));
}

TEST(WinFile, OpensByDispositionAndFindsNamesInAnyCase) {
    TempDir dir;
    std::filesystem::create_directories("Maps/Town");
    WriteAll("Maps/Town/Test.VBF", CREATE_ALWAYS, "0123456789");
    struct Refused {
        const char* name;
        uint32_t disposition;
    };
    for (Refused r : {Refused{"missing", OPEN_EXISTING}, Refused{"missing", TRUNCATE_EXISTING},
                      Refused{"maps/town/test.vbf", CREATE_NEW}, Refused{"Maps/Town/Test.VBF", 77},
                      Refused{"Maps", OPEN_EXISTING}, Refused{"", OPEN_EXISTING},
                      Refused{nullptr, OPEN_EXISTING}})
        EXPECT_EQ(Open(r.name, r.disposition), INVALID_HANDLE_VALUE)
            << (r.name ? r.name : "null") << " " << r.disposition;
    EXPECT_FALSE(std::filesystem::exists("missing"));
    WriteAll("MAPS\\TOWN\\TEST.VBF", OPEN_ALWAYS, "xy");  // keeps the rest, starts at the start
    EXPECT_EQ(ReadWholeFile("Maps/Town/Test.VBF"), "xy23456789");
    WriteAll((dir.Path() + "/maps\\town\\test.vbf").c_str(), CREATE_ALWAYS, "new");
    EXPECT_EQ(ReadWholeFile("Maps/Town/Test.VBF"), "new");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("Maps/Town"), {}), 1);
}

TEST(WinFile, MovesBeforeTheStartAreRefusedAndAWritePastTheEndFillsWithZeros) {
    TempDir dir;
    WriteAll("c.bin", CREATE_ALWAYS, "abcdefghij");
    HANDLE file = Open("c.bin", OPEN_EXISTING, GENERIC_READ | GENERIC_WRITE);
    char bytes[8] = {};
    uint32_t high = 99, done = 99;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_END), 9u);
    EXPECT_TRUE(ReadFile(file, bytes, 5, &done, nullptr));  // the end cuts the count
    EXPECT_EQ(std::string(bytes, done), "j");
    int32_t distanceHigh = 0;
    for (uint32_t refused :
         {SetFilePointer(file, -11, nullptr, FILE_END),
          SetFilePointer(file, -1, nullptr, FILE_BEGIN), SetFilePointer(file, 0, nullptr, 3),
          SetFilePointer(file, 0, &distanceHigh, FILE_BEGIN)})
        EXPECT_EQ(refused, INVALID_SET_FILE_POINTER);
    EXPECT_EQ(SetFilePointer(file, -8, nullptr, FILE_CURRENT), 2u);  // the position stayed
    EXPECT_EQ(SetFilePointer(file, 12, nullptr, FILE_BEGIN), 12u);
    EXPECT_TRUE(WriteFile(file, "z", 1, &done, nullptr));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ReadWholeFile("c.bin"), std::string("abcdefghij\0\0z", 13));
    file = Open("c.bin", OPEN_EXISTING, GENERIC_READ);
    EXPECT_FALSE(WriteFile(file, "q", 1, &done, nullptr));  // no write access
    EXPECT_EQ(done, 0u);
    EXPECT_FALSE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_FALSE(ReadFile(INVALID_HANDLE_VALUE, bytes, 1, &done, nullptr));
    EXPECT_EQ(GetFileSize(INVALID_HANDLE_VALUE, nullptr), INVALID_FILE_SIZE);
}

TEST(SplitPath, TakesDirectoryNameAndExtensionEachCutToItsBuffer) {
    const std::string longPath =
        std::string(400, 'd') + "/" + std::string(300, 'n') + "." + std::string(300, 'e');
    struct Row {
        std::string path, dir, fname, ext;
    };
    for (const Row& r :
         {Row{"maps/town/test.vbf", "maps/town/", "test", ".vbf"},
          Row{"maps\\town.v2\\test", "maps\\town.v2\\", "test", ""},
          Row{"archive.tar.gz", "", "archive.tar", ".gz"}, Row{"/abs/dir/", "/abs/dir/", "", ""},
          Row{longPath, std::string(_MAX_DIR - 1, 'd'), std::string(_MAX_FNAME - 1, 'n'),
              "." + std::string(_MAX_EXT - 2, 'e')}}) {
        char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
        _splitpath(r.path.c_str(), drive, dir, fname, ext);
        EXPECT_EQ((std::vector<std::string>{drive, dir, fname, ext}),
                  (std::vector<std::string>{"", r.dir, r.fname, r.ext}))
            << r.path.substr(0, 40);
    }
    _splitpath("a/b.c", nullptr, nullptr, nullptr, nullptr);  // every output optional
}

}  // namespace
