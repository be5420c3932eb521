#include "platform/crt/win_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

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

// Opens name, writes bytes and closes it.
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
    EXPECT_EQ(Open("missing.bin", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(Open("missing.bin", GENERIC_READ, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(std::filesystem::exists("missing.bin"));

    WriteAll("a.bin", CREATE_ALWAYS, "0123456789");
    EXPECT_EQ(Open("a.bin", GENERIC_WRITE, CREATE_NEW), INVALID_HANDLE_VALUE);
    // Open-or-create keeps the content and starts at the beginning, as the platform does.
    WriteAll("a.bin", OPEN_ALWAYS, "xy");
    EXPECT_EQ(ReadWholeFile("a.bin"), "xy23456789");
    WriteAll("b.bin", OPEN_ALWAYS, "");
    EXPECT_TRUE(std::filesystem::exists("b.bin"));
    WriteAll("a.bin", CREATE_ALWAYS, "");
    EXPECT_EQ(ReadWholeFile("a.bin"), "");

    std::filesystem::create_directory("folder");
    for (const char* name : {"folder", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(Open(name, GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(Open("a.bin", GENERIC_READ, 77), INVALID_HANDLE_VALUE);
}

TEST(WinFile, NamesFromWindowsDataFindTheirFile) {
    TempDir dir;
    std::filesystem::create_directories("Maps/Town");
    WriteWholeFile("Maps/Town/Test.VBF", "mesh");
    const std::string absolute = dir.File("maps/TOWN/test.vbf");
    for (const char* name : {"Maps\\Town\\Test.VBF", "MAPS\\TOWN\\TEST.VBF", absolute.c_str()}) {
        HANDLE file = Open(name, GENERIC_READ, OPEN_EXISTING);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
        EXPECT_EQ(ReadAll(file, 10), "mesh") << name;
        CloseHandle(file);
    }
    // Writing to an existing file in another case reaches that file, not a second one.
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

    // A move before the start is refused and the position stays.
    EXPECT_EQ(SetFilePointer(file, -11, nullptr, FILE_END), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), 10u);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, 3), INVALID_SET_FILE_POINTER);
    int32_t distanceHigh = 0;
    EXPECT_EQ(SetFilePointer(file, 0, &distanceHigh, FILE_BEGIN), INVALID_SET_FILE_POINTER);

    // Past the end is allowed; a write there fills the gap with zeros.
    EXPECT_EQ(SetFilePointer(file, 12, nullptr, FILE_BEGIN), 12u);
    EXPECT_TRUE(WriteFile(file, "z", 1, &done, nullptr));
    EXPECT_EQ(GetFileSize(file, nullptr), 13u);
    EXPECT_TRUE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ReadWholeFile("c.bin"), std::string("abcdefghij\0\0z", 13));

    file = Open("c.bin", GENERIC_READ, OPEN_EXISTING);
    EXPECT_FALSE(FlushFileBuffers(file));  // no write access, as on the original platform
    EXPECT_FALSE(WriteFile(file, "q", 1, &done, nullptr));
    EXPECT_EQ(done, 0u);
    char byte;
    EXPECT_FALSE(ReadFile(file, nullptr, 1, &done, nullptr));
    EXPECT_FALSE(ReadFile(file, &byte, 1, nullptr, nullptr));
    CloseHandle(file);

    done = 99;
    EXPECT_FALSE(ReadFile(INVALID_HANDLE_VALUE, &byte, 1, &done, nullptr));
    EXPECT_EQ(done, 0u);
    EXPECT_FALSE(WriteFile(INVALID_HANDLE_VALUE, &byte, 1, &done, nullptr));
    EXPECT_EQ(SetFilePointer(INVALID_HANDLE_VALUE, 0, nullptr, FILE_BEGIN),
              INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetFileSize(INVALID_HANDLE_VALUE, nullptr), INVALID_FILE_SIZE);
    EXPECT_FALSE(FlushFileBuffers(INVALID_HANDLE_VALUE));
    EXPECT_FALSE(CloseHandle(INVALID_HANDLE_VALUE));
}

TEST(WinFile, RuntimeDescriptorCalls) {
    TempDir dir;
    FILE* stream = std::fopen("e.bin", "wb");
    ASSERT_NE(stream, nullptr);
    std::fwrite("12345", 1, 5, stream);
    // The length is the descriptor's: what waits in the stream's buffer is not in it yet.
    EXPECT_EQ(_filelength(_fileno(stream)), 0);
    std::fflush(stream);
    EXPECT_EQ(_commit(_fileno(stream)), 0);
    EXPECT_EQ(_filelength(_fileno(stream)), 5);
    std::fclose(stream);
    stream = std::fopen("e.bin", "rb");
    EXPECT_EQ(_commit(_fileno(stream)), -1);  // read only
    std::fclose(stream);
    EXPECT_EQ(_fileno(nullptr), -1);
    EXPECT_EQ(_filelength(-1), -1);
    EXPECT_EQ(_commit(-1), -1);
}

}  // namespace
