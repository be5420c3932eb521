#include "base/ResLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "base/compression/method.h"
#include "base/file.h"
#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/base/reslibrary_fixture.h"

namespace {

std::string Extracted(ResourceLibrary& library, const char* name) {
    uint32_t size = 0;
    uint8_t* data = library.Extract(name, &size, nullptr, nullptr);
    if (!data) return "<null>";
    std::string bytes(reinterpret_cast<const char*>(data), size);
    FREE(data);
    return bytes;
}

std::string ReadAll(File* file) {
    std::string bytes;
    char chunk[4096];
    while (uint32_t got = file->Read(chunk, sizeof chunk)) bytes.append(chunk, got);
    return bytes;
}

std::string RandomBytes(size_t count, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(count, 0);
    for (char& c : bytes) c = char(random());
    return bytes;
}

// Writes lib/<name> and adds it to the library with method.
bool AddLoose(ResourceLibrary& library, const std::string& name, const std::string& bytes,
              uint32_t method, int32_t time = 1000000) {
    std::filesystem::create_directories(std::filesystem::path("lib/" + name).parent_path());
    WriteWholeFile("lib/" + name, bytes);
    SetFileTime("lib/" + name, time);
    return library.AddFile(("lib/" + name).c_str(), method, 9);
}

TEST(ResourceLibrary, AddedEntriesReadBackByEveryRoad) {
    TempDir dir;
    const std::string tga = SampleFile("data/sample/textures/grass.tga");
    const std::string vbf = SampleFile("data/sample/test.vbf");
    ASSERT_FALSE(tga.empty() || vbf.empty());
    std::string text;
    for (int i = 0; i < 300; ++i) text += "line " + std::to_string(i % 17) + " of a text\r\n";
    const struct {
        std::string name, bytes;
        uint32_t method;
    } contents[] = {{"raw.bin", RandomBytes(5000, 1), CompressionRaw},
                    {"sub/grass.tga", tga, CompressionZlib},
                    {"test.vbf", vbf, CompressionHuffman},
                    {"text.txt", text, CompressionHuffman},
                    {"zero.bin", std::string(20000, '\0'), CompressionZlib}};
    {
        ResourceLibrary builder;
        builder.Initialise("lib", 0, false, false);
        for (const auto& entry : contents)
            ASSERT_TRUE(AddLoose(builder, entry.name, entry.bytes, entry.method)) << entry.name;
        // A second copy of a packed name is refused.
        DebugCapture debug;
        EXPECT_FALSE(builder.AddFile("lib/raw.bin", CompressionRaw, 0));
        EXPECT_EQ(debug.Text(), "File is not more recent that the existing library\n");
    }
    std::filesystem::remove_all("lib");  // only the volume is left to serve
    for (bool cached : {false, true}) {
        SCOPED_TRACE(cached);
        ResourceLibrary library;
        library.Initialise("lib\\", 0, cached, true);
        ASSERT_TRUE(library.Open());
        EXPECT_EQ(library.GetNextVolume(), 2u);
        EXPECT_LT(library.Find("test.vbf")->storedSize, vbf.size());  // really compressed
        for (const auto& entry : contents) {
            SCOPED_TRACE(entry.name);
            EXPECT_TRUE(library.IsPacked(entry.name.c_str()));
            EXPECT_EQ(Extracted(library, entry.name.c_str()), entry.bytes);
            File* file = library.OpenFile(entry.name.c_str(), "rb", false);
            ASSERT_NE(file, nullptr);
            EXPECT_EQ(ReadAll(file), entry.bytes);
            library.CloseFile(file);
            EXPECT_EQ(file, nullptr);
        }
        // In text mode a memory file leaves out the 13s.
        File* textFile = library.OpenFile("TEXT.TXT", "rt", false);
        std::string lines = text;
        std::erase(lines, '\r');
        EXPECT_EQ(ReadAll(textFile), lines);
        library.CloseFile(textFile);
        if (!cached) {
            // The entry starts the data file, so the span shows the whole file: a reader bounds
            // itself by the entry's size.
            File* stream = library.OpenFile("raw.bin", "rb", true);
            std::string streamed(5000, 0);
            EXPECT_EQ(stream->Read(streamed.data(), 5000), 5000u);
            EXPECT_EQ(streamed, contents[0].bytes);
            library.CloseFile(stream);
        }
        std::filesystem::create_directories("lib/sub");
        EXPECT_TRUE(library.ExtractToFile("lib/sub/grass.tga"));
        EXPECT_EQ(ReadWholeFile("lib/sub/grass.tga"), tga);
        EXPECT_FALSE(library.ExtractToFile("lib/missing"));
        library.Close();
        std::filesystem::remove_all("lib");
    }
    EXPECT_EQ(FileOpenCount(), 0u);
}

TEST(ResourceLibrary, CompressionThatDoesNotPayIsStoredRaw) {
    TempDir dir;
    ResourceLibrary builder;
    builder.Initialise("lib", 0, false, false);
    ASSERT_TRUE(AddLoose(builder, "noise.bin", RandomBytes(3000, 7), CompressionHuffman));
    ASSERT_TRUE(AddLoose(builder, "same.bin", std::string(3000, 'a'), CompressionHuffman));
    ResourceLibrary library;
    library.Initialise("lib", 0, false, false);
    ASSERT_NE(library.Find("noise.bin"), nullptr);
    EXPECT_EQ(library.Find("noise.bin")->method, CompressionRaw);  // as written in the header
    EXPECT_EQ(library.Find("noise.bin")->storedSize, 3000u);
    EXPECT_EQ(library.Find("same.bin")->method, CompressionHuffman);
    ASSERT_TRUE(library.Open());
    EXPECT_EQ(Extracted(library, "noise.bin"), RandomBytes(3000, 7));
    EXPECT_EQ(Extracted(library, "same.bin"), std::string(3000, 'a'));
}

TEST(ResourceLibrary, NewestCopyWinsAndEqualTimesKeepTheFirst) {
    TempDir dir;
    WriteVolume("lib", 1, {{"a.txt", 100, "a1"}, {"b.txt", 100, "b1"}, {"c.txt", 100, "c1"}});
    WriteVolume("lib", 2, {{"A.TXT", 200, "a2"}, {"b.txt", 100, "b2"}});
    WriteVolume("lib", 4, {{"e.txt", 300, "e4"}});  // behind a gap: never read
    std::filesystem::create_directories("lib/Dir");
    WriteWholeFile("lib/c.txt", "c-loose");  // same time as its packed copy
    SetFileTime("lib/c.txt", 100);
    WriteWholeFile("lib/Dir/d.txt", "d-loose");
    SetFileTime("lib/Dir/d.txt", 50);
    WriteWholeFile("lib/b.txt", "b-loose");
    SetFileTime("lib/b.txt", 101);

    ResourceLibrary library;
    library.Initialise("lib", 0, false, true);
    ASSERT_TRUE(library.Open());
    EXPECT_EQ(library.GetNextVolume(), 3u);
    EXPECT_EQ(Extracted(library, "a.txt"), "a2");
    EXPECT_EQ(Extracted(library, "b.txt"), "b-loose");
    EXPECT_FALSE(library.IsPacked("b.txt"));
    EXPECT_EQ(Extracted(library, "c.txt"), "c1");
    EXPECT_EQ(Extracted(library, "DIR\\d.txt"), "d-loose");
    // A loose file changed since the scan is read with its new size.
    WriteWholeFile("lib/Dir/d.txt", "d-loose, longer now");
    SetFileTime("lib/Dir/d.txt", 60);
    EXPECT_EQ(Extracted(library, "dir/D.TXT"), "d-loose, longer now");
    uint32_t size = 0;
    EXPECT_TRUE(library.Exists("Dir/D.txt", &size));
    EXPECT_EQ(size, 19u);
    File* stream = library.OpenFile("b.txt", "rb", true);  // a newer loose file streams from disk
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream), "b-loose");
    library.CloseFile(stream);

    std::vector<std::string> names;
    ResourceIterator it;
    for (const char* name = library.FirstEntry(&it); name; name = library.NextEntry(&it)) {
        names.push_back(name);
        if (names.back() == "B.TXT") library.RemoveEntry(&it);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"A.TXT", "B.TXT", "C.TXT", "DIR\\D.TXT"}));
    EXPECT_FALSE(library.Exists("b.txt", nullptr));
    EXPECT_TRUE(std::filesystem::exists("lib/b.txt"));  // the file on disk stays

    // Without the scan the loose files are not in the table, but OpenFile finds them on disk.
    library.Initialise("lib", 0, false, false);
    ASSERT_TRUE(library.Open());
    EXPECT_EQ(Extracted(library, "b.txt"), "b1");  // equal times: the earlier volume
    EXPECT_FALSE(library.Exists("dir/d.txt", nullptr));
    File* loose = library.OpenFile("dir/D.TXT", "rb", false);
    ASSERT_NE(loose, nullptr);
    EXPECT_EQ(ReadAll(loose), "d-loose, longer now");
    library.CloseFile(loose);
}

TEST(ResourceLibrary, ExtractReusesTheCallersBlock) {
    TempDir dir;
    WriteVolume("lib", 1, {{"small", 1, "abc"}, {"large", 1, std::string(100, 'x')}});
    ResourceLibrary library;
    library.Initialise("lib", 0, false, false);
    ASSERT_TRUE(library.Open());
    uint32_t capacity = 50, size = 0;
    auto* block = static_cast<uint8_t*>(MALLOC(capacity));
    uint8_t* const first = block;
    EXPECT_EQ(library.Extract("small", &size, &block, &capacity), first);
    EXPECT_EQ(capacity, 50u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block), size), "abc");
    EXPECT_EQ(library.Extract("large", &size, &block, &capacity), block);
    EXPECT_EQ(capacity, 100u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block), size), std::string(100, 'x'));
    FREE(block);
}

TEST(ResourceLibrary, DamagedVolumesAreRefusedWithALine) {
    TempDir dir;
    const std::string packed = [] {
        std::string out(64 + 2 * 4000, 0);
        const std::string text(4000, 'q');
        const uint32_t got = CompressMethods[CompressionZlib](
            reinterpret_cast<const uint8_t*>(text.data()), reinterpret_cast<uint8_t*>(out.data()),
            4000, uint32_t(out.size()), 9);
        out.resize(got);
        return out;
    }();
    std::string damaged = packed;
    damaged[damaged.size() / 2] ^= 0x55;
    damaged[damaged.size() - 1] ^= 0x55;
    WriteVolume("lib", 1,
                {{"good", 1, packed, CompressionZlib, 4000},
                 {"damaged", 1, damaged, CompressionZlib, 4000},
                 {"method", 1, "xyz", 7},
                 {"huge", 1, "xyz", CompressionZlib, 0xFFFFFFF0u},
                 {"raw-mismatch", 1, "xyz", CompressionRaw, 50},
                 {"tail", 1, "last"}});
    // A record whose name has no terminator, behind the good ones.
    std::string header = ReadWholeFile("lib0001.RFH");
    header += std::string("\x05\0\0\0", 4) + std::string(20, '\0') + "abcde";
    WriteWholeFile("lib0001.RFH", header);
    // The data file loses its last two bytes.
    std::string data = ReadWholeFile("lib0001.RFD");
    WriteWholeFile("lib0001.RFD", data.substr(0, data.size() - 2));

    ReportLog log;
    for (bool cached : {false, true}) {
        ResourceLibrary library;
        library.Initialise("lib", 0, cached, false);
        EXPECT_TRUE(log.Has("Resource header lib0001.RFH is damaged at byte " +
                            std::to_string(header.size() - 29)));
        ASSERT_TRUE(library.Open());
        EXPECT_EQ(Extracted(library, "good"), std::string(4000, 'q'));
        EXPECT_EQ(Extracted(library, "damaged"), "<null>");
        EXPECT_TRUE(log.Has("Resource damaged of lib does not expand; refused"));
        EXPECT_EQ(Extracted(library, "method"), "<null>");
        EXPECT_TRUE(log.Has("Resource method of lib has an unknown method; refused"));
        EXPECT_EQ(Extracted(library, "huge"), "<null>");
        EXPECT_TRUE(log.Has("huge of lib claims more than its stored bytes can hold"));
        EXPECT_EQ(Extracted(library, "raw-mismatch"), "<null>");
        EXPECT_EQ(Extracted(library, "tail"), "<null>");
        EXPECT_TRUE(log.Has("Resource tail of lib lies past the end of its data; refused"));
        EXPECT_EQ(library.OpenFile("tail", "rb", false), nullptr);
        EXPECT_TRUE(log.Has("Could Not Open tail(rb)\n"));
        log.texts.clear();
    }
}

TEST(ResourceLibrary, StreamingRefusalsAndMissingNames) {
    TempDir dir;
    WriteVolume("lib", 1,
                {{"raw", 1, "raw bytes"},
                 {"packed", 1, "zz", CompressionZlib, 2},
                 {"inner", 1, "inner bytes"}});
    ReportLog log;
    ResourceLibrary library;
    library.Initialise("lib", 0, false, false);
    ASSERT_TRUE(library.Open());
    File* span = library.OpenFile("INNER", "RB", true);
    ASSERT_NE(span, nullptr);
    EXPECT_EQ(span->GetSize(), 11u);
    std::string streamed(11, 0);
    EXPECT_EQ(span->Read(streamed.data(), 11), 11u);
    EXPECT_EQ(streamed, "inner bytes");
    EXPECT_TRUE(span->IsEndOfFile());
    library.CloseFile(span);
    EXPECT_EQ(library.OpenFile("packed", "rb", true), nullptr);
    EXPECT_EQ(library.OpenFile("nowhere", "rb", false), nullptr);
    // A file written through the library lands under its root.
    File* written = library.OpenFile("new.txt", "wb", false);
    ASSERT_NE(written, nullptr);
    written->WriteString("made");
    library.CloseFile(written);
    EXPECT_EQ(ReadWholeFile("lib/new.txt"), "made");

    ResourceLibrary cached;
    cached.Initialise("lib", 0, true, false);
    ASSERT_TRUE(cached.Open());
    EXPECT_EQ(cached.OpenFile("raw", "rb", true), nullptr);
    EXPECT_EQ(log.Take(),
              (Texts{"W: File lib0001.RFD closed without writing.  Open for read only",  // "RB"
                     "W: Cannot stream file because packed from resource file lib is compressed\n",
                     "W: Could Not Open nowhere(rb)\n",
                     "W: Cannot stream file because raw from resource file lib is cached\n"}));
    EXPECT_EQ(FileOpenCount(), 0u);
}

TEST(ResourceLibrary, UnusedLibraryIsNamedAtCloseOnlyIfOpened) {
    TempDir dir;
    WriteVolume("lib", 1, {{"x", 1, "x"}});
    ReportLog log;
    ResourceLibrary library;
    library.Initialise("lib", 0, false, false);
    library.Close();
    EXPECT_EQ(log.texts, Texts{});
    ASSERT_TRUE(library.Open());
    library.Close();
    EXPECT_EQ(log.Take(), (Texts{"W: ResourceLibrary lib Has not been used since it was opened"}));
    ASSERT_TRUE(library.Open());
    EXPECT_TRUE(library.Exists("x", nullptr));  // a lookup is no use
    EXPECT_EQ(Extracted(library, "x"), "x");
    library.Close();
    EXPECT_EQ(log.texts, Texts{});
    // A volume whose data file is missing leaves the library closed.
    std::filesystem::remove("lib0001.RFD");
    EXPECT_FALSE(library.Open());
    EXPECT_FALSE(library.IsOpen());
}

}  // namespace
