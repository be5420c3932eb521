#include "base/ResLibrary.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/compression/method.h"
#include "base/file.h"
#include "base/memory.h"
#include "base/reslibrary_header.h"
#include "base/resmanager.h"
#include "platform/debug/debug_output.h"
#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using Texts = std::vector<std::string>;

namespace fs = std::filesystem;

struct HandEntry {
    std::string name;
    std::string bytes;  // as stored
    int32_t time = 1;
    uint32_t method = CompressionRaw;
    uint32_t size = 0;  // 0: the stored bytes' length
};

// Writes root%04u.RFH/.RFD with the entries one behind the other.
void WriteVolume(const std::string& root, uint32_t volume, const std::vector<HandEntry>& entries) {
    std::string header, data;
    for (const HandEntry& e : entries) {
        const uint32_t stored = uint32_t(e.bytes.size()), size = e.size ? e.size : stored;
        const ResourceRecord record{0, e.time, e.method, stored, size, nullptr, 0, uint32_t(data.size())};
        uint8_t bytes[1024];
        header.append(reinterpret_cast<char*>(bytes),
                      WriteResourceHeaderRecord(record, e.name.c_str(), bytes, sizeof bytes));
        data += e.bytes;
    }
    WriteWholeFile(root + "000" + std::to_string(volume) + ".RFH", header);
    WriteWholeFile(root + "000" + std::to_string(volume) + ".RFD", data);
}

void WriteLoose(const std::string& path, const std::string& bytes, int32_t seconds) {
    fs::create_directories(fs::path(path).parent_path());
    WriteWholeFile(path, bytes);
    fs::last_write_time(
        path, std::chrono::file_clock::from_sys(std::chrono::sys_seconds{} + std::chrono::seconds(seconds)));
}

std::string Extracted(ResourceLibrary& library, const std::string& name) {
    uint32_t size = 0;
    uint8_t* data = library.Extract(name.c_str(), &size, nullptr, nullptr);
    std::string bytes = data ? std::string(reinterpret_cast<const char*>(data), size) : "<null>";
    FREE(data);
    return bytes;
}

// Reads the file to its end, or count bytes, and closes it through the library.
std::string ReadAll(ResourceLibrary& library, File* file, uint32_t count = UINT32_MAX) {
    std::string bytes;
    char chunk[4096];
    while (uint32_t got = file->Read(chunk, std::min<uint32_t>(sizeof chunk, count - bytes.size())))
        bytes.append(chunk, got);
    library.CloseFile(file);
    EXPECT_EQ(file, nullptr);
    return bytes;
}

// Bytes that no method can pack.
std::string Noise(size_t count, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(count, 0);
    for (char& c : bytes) c = char(random());
    return bytes;
}

TEST(ResourceLibrary, EntriesOfEveryMethodComeBackByEveryRoad) {
    TempDir dir;
    std::string text;
    for (int i = 0; i < 300; ++i) text += "line " + std::to_string(i % 17) + " of a text\r\n";
    // Noise does not pay for its decoding, so it is stored raw whatever the method asked.
    const struct {
        std::string name, bytes;
        uint32_t method, stored;
    } rows[] = {{"raw.bin", Noise(5000, 1), CompressionRaw, CompressionRaw},
                {"sub/grass.tga", ReadWholeFile(TENEBRIX_SOURCE_DIR "/data/sample/textures/grass.tga"),
                 CompressionZlib, CompressionZlib},
                {"test.vbf", ReadWholeFile(TENEBRIX_SOURCE_DIR "/data/sample/test.vbf"), CompressionHuffman,
                 CompressionHuffman},
                {"text.txt", text, CompressionHuffman, CompressionHuffman},
                {"noise.bin", Noise(3000, 7), CompressionHuffman, CompressionRaw}};
    {
        ResourceLibrary builder;
        builder.Initialise("lib", 0, false, false);
        for (const auto& row : rows) {
            WriteLoose("lib/" + row.name, row.bytes, 1000000);
            ASSERT_TRUE(builder.AddFile(("lib/" + row.name).c_str(), row.method, 9)) << row.name;
        }
        DebugCapture debug;
        EXPECT_FALSE(builder.AddFile("lib/raw.bin", CompressionRaw, 0) || builder.AddFile("lib/no", 0, 0));
        EXPECT_EQ(debug.Text(),
                  "File is not more recent that the existing library\nCould not access target file!\n");
    }
    fs::remove_all("lib");  // only the volume is left to serve
    ReportCapture log;
    for (bool cached : {false, true}) {
        SCOPED_TRACE(cached);
        ResourceLibrary library;
        library.Initialise("lib\\", 0, cached, true);
        ASSERT_TRUE(library.Open());
        Texts refusals;
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            ASSERT_TRUE(library.IsPacked(row.name.c_str()));
            EXPECT_EQ(library.Find(row.name.c_str())->method, row.stored);
            EXPECT_EQ(library.Find(row.name.c_str())->storedSize < row.bytes.size(),
                      row.stored != CompressionRaw);
            EXPECT_EQ(Extracted(library, row.name), row.bytes);
            EXPECT_EQ(ReadAll(library, library.OpenFile(row.name.c_str(), "rb", false)), row.bytes);
            // Only raw entries of a library that is not cached stream, as a span of the data file
            // that its reader bounds by the entry's size.
            File* stream = library.OpenFile(row.name.c_str(), "rb", true);
            ASSERT_EQ(stream != nullptr, !cached && row.stored == CompressionRaw);
            if (stream) {
                EXPECT_EQ(ReadAll(library, stream, uint32_t(row.bytes.size())), row.bytes);
            } else {
                refusals.push_back("W: Cannot stream file because " + row.name +
                                   " from resource file lib is " + (cached ? "cached\n" : "compressed\n"));
            }
        }
        EXPECT_EQ(log.Take(), refusals);
        // In text mode a memory file leaves out the 13s.
        std::erase(text, '\r');
        EXPECT_EQ(ReadAll(library, library.OpenFile("TEXT.TXT", "rt", false)), text);
    }
    EXPECT_EQ(FileOpenCount(), 0u);
}

TEST(ResourceLibrary, NewestCopyWinsAndEqualTimesKeepTheFirst) {
    TempDir dir;
    WriteVolume("lib", 1, {{"a.txt", "a1", 100}, {"b.txt", "b1", 100}, {"c.txt", "c1", 100}});
    WriteVolume("lib", 2, {{"A.TXT", "a2", 200}, {"b.txt", "b2", 100}});
    WriteVolume("lib", 4, {{"e.txt", "e4", 300}});  // behind a gap: never read
    WriteLoose("lib/c.txt", "c-loose", 100);        // same time as its packed copy
    WriteLoose("lib/Dir/d.txt", "d-loose", 50);
    WriteLoose("lib/b.txt", "b-loose", 101);
    ReportCapture log;
    ResourceLibrary library;
    library.Initialise("lib", 0, false, true);
    library.Close();  // never opened: nothing to say
    ASSERT_TRUE(library.Open());
    EXPECT_EQ(library.GetNextVolume(), 3u);
    EXPECT_EQ(Extracted(library, "a.txt") + Extracted(library, "b.txt") + Extracted(library, "c.txt") +
                  Extracted(library, "DIR\\d.txt"),
              "a2b-loosec1d-loose");
    EXPECT_FALSE(library.IsPacked("b.txt"));
    // A loose file changed since the scan is read with its new size.
    WriteLoose("lib/Dir/d.txt", "d-loose, longer now", 60);
    EXPECT_EQ(Extracted(library, "dir/D.TXT"), "d-loose, longer now");
    uint32_t size = 0;
    EXPECT_TRUE(library.Exists("Dir/D.txt", &size));
    EXPECT_EQ(size, 19u);
    EXPECT_EQ(ReadAll(library, library.OpenFile("b.txt", "rb", true)), "b-loose");  // streamed from disk

    Texts names;
    ResourceIterator it;
    for (const char* name = library.FirstEntry(&it); name; name = library.NextEntry(&it)) {
        names.push_back(name);
        if (names.back() == "B.TXT") library.RemoveEntry(&it);
    }
    EXPECT_EQ(names, (Texts{"A.TXT", "B.TXT", "C.TXT", "DIR\\D.TXT"}));
    EXPECT_FALSE(library.Exists("b.txt", nullptr));
    EXPECT_TRUE(fs::exists("lib/b.txt"));  // the file on disk stays

    // Without the scan the loose files are not in the table, but OpenFile finds them on disk.
    library.Initialise("lib", 0, false, false);
    ASSERT_TRUE(library.Open());
    EXPECT_EQ(Extracted(library, "b.txt"), "b1");  // equal times: the earlier volume
    EXPECT_FALSE(library.Exists("dir/d.txt", &size));
    EXPECT_EQ(ReadAll(library, library.OpenFile("dir/D.TXT", "rb", false)), "d-loose, longer now");
    EXPECT_EQ(library.OpenFile("nowhere", "rb", false), nullptr);
    EXPECT_TRUE(library.ExtractToFile("lib/a.txt"));  // a loose copy of the packed entry
    EXPECT_EQ(ReadWholeFile("lib/a.txt"), "a2");

    // Extract grows the caller's block when it is too small, and reuses it otherwise.
    uint32_t capacity = 1;
    auto* block = static_cast<uint8_t*>(MALLOC(capacity));
    EXPECT_NE(library.Extract("a.txt", &size, &block, &capacity), nullptr);
    uint8_t* const grown = block;
    EXPECT_EQ(library.Extract("c.txt", &size, &block, &capacity), grown);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block), size) + std::to_string(capacity), "c12");
    FREE(block);
    library.Close();
    ASSERT_TRUE(library.Open());
    library.Close();  // opened and not used
    fs::remove("lib0002.RFD");
    EXPECT_FALSE(library.Open());  // a volume without its data file
    EXPECT_EQ(log.Take(), (Texts{"W: Could Not Open nowhere(rb)\n",
                                 "W: ResourceLibrary lib Has not been used since it was opened"}));
}

TEST(ResourceLibrary, DamagedEntriesAreRefusedWithALine) {
    TempDir dir;
    // No method expands 3 bytes to more than 3 * 1100 + 1024; the data file is cut inside "tail".
    const struct {
        HandEntry entry;
        const char* problem;
    } rows[] = {{{"method", "xyz", 1, 7}, "has an unknown method"},
                {{"damaged", "xyz", 1, CompressionZlib, 4324}, "does not expand"},
                {{"huge", "xyz", 1, CompressionHuffman, 4325}, "claims more than its stored bytes can hold"},
                {{"raw", "xyz", 1, CompressionRaw, 50}, "is raw with a stored size unlike its size"},
                {{"tail", "last"}, "lies past the end of its data"}};
    std::vector<HandEntry> entries = {{"good", "g"}};
    for (const auto& row : rows) entries.push_back(row.entry);
    WriteVolume("lib", 1, entries);
    WriteWholeFile("lib0001.RFD", "gxyzxyzxyzxyzla");
    ReportCapture log;
    for (bool cached : {false, true}) {
        ResourceLibrary library;
        library.Initialise("lib", 0, cached, false);
        ASSERT_TRUE(library.Open());
        EXPECT_EQ(Extracted(library, "good"), "g");
        for (const auto& row : rows) {
            EXPECT_EQ(Extracted(library, row.entry.name), "<null>");
            EXPECT_EQ(log.Take().back(),
                      "W: Resource " + row.entry.name + " of lib " + row.problem + "; refused\n");
        }
        EXPECT_EQ(library.OpenFile("tail", "rb", !cached), nullptr);  // streamed or not
        EXPECT_EQ(log.Take().back(), "W: Could Not Open tail(rb)\n");
    }
    // A damaged header keeps the records before the damage.
    const std::string header = ReadWholeFile("lib0001.RFH"), fixed(20, '\0');
    for (const std::string& tail : {std::string(23, '\0'), std::string(24, '\0') + "x",  // short; no name
                                    std::string("\x05\0\0\0", 4) + fixed + "abcde",      // no terminator
                                    std::string("\x40\0\0\0", 4) + fixed + std::string(10, '\0')}) {
        WriteWholeFile("lib0001.RFH", header + tail);
        ResourceLibrary library;
        library.Initialise("lib", 0, false, false);
        EXPECT_EQ(log.Take(),
                  Texts{"W: Resource header lib0001.RFH is damaged at byte " + std::to_string(header.size()) +
                        "; the records from there on are left out\n"});
        ASSERT_TRUE(library.Open());
        EXPECT_EQ(Extracted(library, "good"), "g");
    }
}

TEST(ResourceManager, ConfigurationsReadAsPairs) {
    {
        ReportCapture log;
        DebugCapture capture;
        ResourceManager("nowhere.cfg").GetResourcePath("LIT");
        EXPECT_EQ(capture.Boxes(), Texts{"ALERT: Could not open RESOURCE.CFG\n"});
        EXPECT_EQ(log.Take(), Texts{"W: Failed to find resource LIT\n"});
    }
    const std::string k399(399, 'k'), a399(399, 'a'), b399(399, 'b'), v399(399, 'v');
    std::string garbage = "x";
    for (int i = 0; i < 600; ++i) garbage += char(i % 3 == 0 ? 0xFF : i % 3 == 1 ? 0x80 : 0);
    // Tokens cut at 399 characters skip their tails; a 0xFF byte does not end the file, a zero
    // byte ends the stored key; a later key wins; keys ignore case; values take forward slashes.
    const struct {
        std::string config, keys, values;
        Texts said;
    } rows[] = {
        {"A\n1\nB\t2\r\n\r\nC\v3\f", "A B c", "1 2 3", {}},
        {"  \n\t A   1\tB\n\n2 C\r3", "a B C", "1 2 3", {}},
        {"A 1\nB 2\nLONELY\n", "A B", "1 2", {"E513: Failed to find second line in RESOURCE.CFG\n\"LONELY\"\n"}},
        {" \n\t\r\n", "", "", {}},
        {std::string(1000, 'k') + " short\nLONG " + std::string(1000, 'v') + "\n" + a399 + " fits " + b399 +
             "b cut\n",
         k399 + " LONG " + a399 + " " + b399,
         "short " + v399 + " fits cut",
         {}},
        {garbage + " value\nKEY after\n", "x\xFF\x80 KEY", "value after", {}},
        {"LIT lit\nTEXTURE_DATA ..\\data\\\nlit later/mixed\\path\n",
         "Lit texture_data TEXTURE_DATAX",
         "later/mixed/path ../data/ <null>",
         {"W: Failed to find resource TEXTURE_DATAX\n"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.config.substr(0, 40));
        TempDir dir;
        WriteWholeFile("resource.cfg", row.config);
        ReportCapture log;
        ResourceManager manager;
        std::string values, key;
        for (std::istringstream keys(row.keys); keys >> key;) {
            const char* value = manager.GetResourcePath(key.c_str());
            values += (values.empty() ? "" : " ") + std::string(value ? value : "<null>");
        }
        EXPECT_EQ(values, row.values);
        EXPECT_EQ(log.Take(), row.said);
    }
}

}  // namespace
