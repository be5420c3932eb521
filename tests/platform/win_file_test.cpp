#include "platform/crt/win_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "tests/support/temp_dir.h"

namespace {

HANDLE Open(const char* name, uint32_t access, uint32_t disposition) {
    return CreateFileA(name, access, FILE_SHARE_READ, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_RANDOM_ACCESS, nullptr);
}

std::string ReadAll(HANDLE file, uint32_t count) {
    std::string bytes(count, '\0');
    uint32_t done = 99;
    EXPECT_TRUE(ReadFile(file, bytes.data(), count, &done, nullptr));
    bytes.resize(done);
    return bytes;
}

void WriteAll(const char* name, uint32_t disposition, const std::string& bytes) {
    HANDLE file = Open(name, GENERIC_WRITE, disposition);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
    uint32_t done = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), uint32_t(bytes.size()), &done, nullptr));
    EXPECT_EQ(done, bytes.size());
    EXPECT_TRUE(CloseHandle(file));
}

TEST(WinFile, DispositionsCreateTruncateOrKeep) {
    TempDir dir;
    WriteAll("a.bin", CREATE_ALWAYS, "0123456789");
    std::filesystem::create_directory("folder");
    struct Refused {
        const char* name;
        uint32_t disposition;
    };
    for (Refused r :
         {Refused{"missing", OPEN_EXISTING}, Refused{"missing", TRUNCATE_EXISTING},
          Refused{"a.bin", CREATE_NEW}, Refused{"a.bin", 77}, Refused{"folder", OPEN_EXISTING},
          Refused{"", OPEN_EXISTING}, Refused{nullptr, OPEN_EXISTING}})
        EXPECT_EQ(Open(r.name, GENERIC_WRITE, r.disposition), INVALID_HANDLE_VALUE)
            << (r.name ? r.name : "null") << " " << r.disposition;
    EXPECT_FALSE(std::filesystem::exists("missing"));
    WriteAll("a.bin", OPEN_ALWAYS, "xy");  // keeps the content and starts at the beginning
    EXPECT_EQ(ReadWholeFile("a.bin"), "xy23456789");
    WriteAll("a.bin", CREATE_ALWAYS, "");
    EXPECT_EQ(ReadWholeFile("a.bin"), "");

    // Names from the maps' data find their file in any case, and a write reaches that file.
    std::filesystem::create_directories("Maps/Town");
    WriteWholeFile("Maps/Town/Test.VBF", "mesh");
    const std::string absolute = dir.File("maps/TOWN/test.vbf");
    for (const char* name : {"Maps\\Town\\Test.VBF", "MAPS\\TOWN\\TEST.VBF", absolute.c_str()}) {
        HANDLE file = Open(name, GENERIC_READ, OPEN_EXISTING);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
        EXPECT_EQ(ReadAll(file, 10), "mesh") << name;
        CloseHandle(file);
    }
    WriteAll("maps\\town\\TEST.vbf", CREATE_ALWAYS, "new");
    EXPECT_EQ(ReadWholeFile("Maps/Town/Test.VBF"), "new");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("Maps/Town"), {}), 1);
}

TEST(WinFile, ReadsWritesAndMovesReportWhatWasDone) {
    TempDir dir;
    WriteAll("c.bin", CREATE_ALWAYS, "abcdefghij");
    HANDLE file = Open("c.bin", GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    uint32_t high = 99, done = 99;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(SetFilePointer(file, 3, nullptr, FILE_BEGIN), 3u);
    EXPECT_EQ(ReadAll(file, 2), "de");
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_CURRENT), 4u);
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_END), 8u);
    EXPECT_EQ(ReadAll(file, 100), "ij");  // the end cuts the count; still a success
    EXPECT_EQ(ReadAll(file, 5), "");
    // A move before the start, or of an unknown kind, is refused and the position stays.
    int32_t distanceHigh = 0;
    for (uint32_t refused :
         {SetFilePointer(file, -11, nullptr, FILE_END),
          SetFilePointer(file, -1, nullptr, FILE_BEGIN), SetFilePointer(file, 0, nullptr, 3),
          SetFilePointer(file, 0, &distanceHigh, FILE_BEGIN)})
        EXPECT_EQ(refused, INVALID_SET_FILE_POINTER);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), 10u);
    // Past the end is allowed; a write there fills the gap with zeros.
    EXPECT_EQ(SetFilePointer(file, 12, nullptr, FILE_BEGIN), 12u);
    EXPECT_TRUE(WriteFile(file, "z", 1, &done, nullptr));
    EXPECT_EQ(GetFileSize(file, nullptr), 13u);
    EXPECT_TRUE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ReadWholeFile("c.bin"), std::string("abcdefghij\0\0z", 13));

    file = Open("c.bin", GENERIC_READ, OPEN_EXISTING);
    EXPECT_FALSE(WriteFile(file, "q", 1, &done, nullptr));  // no write access
    EXPECT_EQ(done, 0u);
    char byte;
    EXPECT_FALSE(ReadFile(file, &byte, 1, nullptr, nullptr));
    EXPECT_TRUE(CloseHandle(file));
    done = 99;
    EXPECT_FALSE(ReadFile(INVALID_HANDLE_VALUE, &byte, 1, &done, nullptr));
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(GetFileSize(INVALID_HANDLE_VALUE, nullptr), INVALID_FILE_SIZE);
    EXPECT_FALSE(CloseHandle(INVALID_HANDLE_VALUE));
}

TEST(SplitPath, TakesDirectoryNameAndExtensionEachCutToItsBuffer) {
    const std::string d(_MAX_DIR - 1, 'd'), n(_MAX_FNAME - 1, 'n'), e(_MAX_EXT - 2, 'e');
    const std::string longPath =
        std::string(400, 'd') + "/" + std::string(300, 'n') + "." + std::string(300, 'e');
    struct Row {
        std::string path, dir, fname, ext;
    };
    for (const Row& r : {Row{"maps/town/test.vbf", "maps/town/", "test", ".vbf"},
                         Row{"maps\\town.v2\\test", "maps\\town.v2\\", "test", ""},
                         Row{"archive.tar.gz", "", "archive.tar", ".gz"},
                         Row{"/abs/dir/", "/abs/dir/", "", ""}, Row{longPath, d, n, "." + e}}) {
        char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
        _splitpath(r.path.c_str(), drive, dir, fname, ext);
        EXPECT_EQ((std::vector<std::string>{drive, dir, fname, ext}),
                  (std::vector<std::string>{"", r.dir, r.fname, r.ext}))
            << r.path.substr(0, 40);
    }
    _splitpath("a/b.c", nullptr, nullptr, nullptr, nullptr);  // every output optional
}

}  // namespace
