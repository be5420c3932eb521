#include "base/resmanager.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

struct Report {
    char slot;  // 'W'arning, 'A'lert, 'E'rror
    uint32_t code;
    std::string text;
};

// Handlers that return and keep what they get, so an error does not end the test program; the
// old handlers come back at the end.
class ReportLog {
public:
    ReportLog() {
        active = this;
        oldWarning = CorvaneSetWarningHandler([](const char* t) { Add('W', 0, t); });
        oldAlert = CorvaneSetAlertHandler([](const char* t) { Add('A', 0, t); });
        oldError = CorvaneSetErrorHandler([](uint32_t c, const char* t) { Add('E', c, t); });
    }
    ~ReportLog() {
        CorvaneSetWarningHandler(oldWarning);
        CorvaneSetAlertHandler(oldAlert);
        CorvaneSetErrorHandler(oldError);
        active = nullptr;
    }
    ReportLog(const ReportLog&) = delete;
    ReportLog& operator=(const ReportLog&) = delete;

    std::vector<Report> reports;

private:
    static void Add(char slot, uint32_t code, const char* text) {
        active->reports.push_back({slot, code, text});
    }
    static inline ReportLog* active = nullptr;
    CorvaneTextHandler oldWarning, oldAlert;
    CorvaneErrorHandler oldError;
};

std::string Path(const ResourceManager& manager, const char* key) {
    const char* value = manager.GetResourcePath(key);
    return value ? value : "<null>";
}

TEST(ResourceManager, LaterKeyWinsAndLookupIgnoresCase) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "LIT lit\nTEXTURE_DATA textures\nlit later\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(Path(manager, "LIT"), "later");
    EXPECT_EQ(Path(manager, "Lit"), "later");
    EXPECT_EQ(Path(manager, "texture_data"), "textures");
    EXPECT_EQ(Path(manager, "TEXTURE_DATAX"), "<null>");  // a prefix is not a match
    // The value stays owned by the manager: the same text each time.
    EXPECT_EQ(manager.GetResourcePath("LIT"), manager.GetResourcePath("lIT"));
    ASSERT_EQ(log.reports.size(), 1u);
    EXPECT_EQ(log.reports[0].slot, 'W');
    EXPECT_EQ(log.reports[0].text, "Failed to find resource TEXTURE_DATAX\n");
}

TEST(ResourceManager, LineBreaksAndBlanksAreAllOneSeparator) {
    const char* layouts[] = {
        "A 1\nB 2\nC 3\n",
        "A 1 B 2 C 3",
        "A\n1\nB\t2\r\n\r\nC\v3\f",
        "  \n\t A   1\tB\n\n2 C\r3",
    };
    for (const char* layout : layouts) {
        SCOPED_TRACE(layout);
        TempDir dir;
        WriteWholeFile("resource.cfg", layout);
        ReportLog log;
        ResourceManager manager;
        EXPECT_EQ(Path(manager, "A"), "1");
        EXPECT_EQ(Path(manager, "B"), "2");
        EXPECT_EQ(Path(manager, "C"), "3");
        EXPECT_TRUE(log.reports.empty());
    }
}

TEST(ResourceManager, EmptyFileGivesAnEmptyManagerWithoutAlert) {
    for (const char* text : {"", " \n\t\r\n"}) {
        TempDir dir;
        WriteWholeFile("resource.cfg", text);
        ReportLog log;
        ResourceManager manager;
        EXPECT_EQ(manager.GetResourcePath("LIT"), nullptr);
        ASSERT_EQ(log.reports.size(), 1u);  // the lookup's warning, nothing from the reading
        EXPECT_EQ(log.reports[0].slot, 'W');
    }
}

TEST(ResourceManager, OddTokenCountRaisesTheErrorWithTheLastToken) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "A 1\nB 2\nLONELY\n");
    ReportLog log;
    ResourceManager manager;
    ASSERT_EQ(log.reports.size(), 1u);
    EXPECT_EQ(log.reports[0].slot, 'E');
    EXPECT_EQ(log.reports[0].code, uint32_t(CorvaneCodeError));
    EXPECT_EQ(log.reports[0].text, "Failed to find second line in RESOURCE.CFG\nLONELY\n");
    // With a handler that returns, the pairs before it stand.
    EXPECT_EQ(Path(manager, "A"), "1");
    EXPECT_EQ(Path(manager, "B"), "2");
    EXPECT_EQ(Path(manager, "LONELY"), "<null>");
}

TEST(ResourceManager, MissingFileAlertsAndLookupsWarn) {
    TempDir dir;
    DebugCapture capture;
    ReportLog log;
    {
        ResourceManager manager;
        ASSERT_EQ(log.reports.size(), 1u);
        EXPECT_EQ(log.reports[0].slot, 'A');
        EXPECT_EQ(log.reports[0].text, "Could not open RESOURCE.CFG\n");

        EXPECT_EQ(manager.GetResourcePath("LIT"), nullptr);
        ASSERT_EQ(log.reports.size(), 2u);
        EXPECT_EQ(log.reports[1].slot, 'W');
        EXPECT_EQ(log.reports[1].text, "Failed to find resource LIT\n");
    }
    EXPECT_NE(capture.Text().find("ResourceManager Destructor"), std::string::npos);

    // An explicit path reads that file, and alerts with the same text when it is missing.
    WriteWholeFile("other.cfg", "LIT scripts");
    ResourceManager other(dir.File("other.cfg").c_str());
    EXPECT_EQ(Path(other, "LIT"), "scripts");
    ResourceManager missing("nowhere.cfg");
    ASSERT_EQ(log.reports.size(), 3u);
    EXPECT_EQ(log.reports[2].text, "Could not open RESOURCE.CFG\n");
}

TEST(ResourceManager, NullKeyAssertsAndGivesNull) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "LIT lit");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(manager.GetResourcePath(nullptr), nullptr);
    ASSERT_EQ(log.reports.size(), 1u);
    EXPECT_EQ(log.reports[0].code, uint32_t(CorvaneCodeAssertion));
}

TEST(ResourceManager, OverlongTokensAreCutAt399AndTheirTailSkipped) {
    TempDir dir;
    const std::string longKey(1000, 'k');
    const std::string longValue(1000, 'v');
    // 399 characters stay whole, 400 lose one; the tails must not be read as further tokens,
    // or every pair behind them shifts and the count turns odd.
    WriteWholeFile("resource.cfg", longKey + " short\nLONG " + longValue + "\n" +
                                       std::string(399, 'a') + " fits " + std::string(400, 'b') +
                                       " cut\nLAST last\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_TRUE(log.reports.empty());
    EXPECT_EQ(Path(manager, std::string(399, 'k').c_str()), "short");
    EXPECT_EQ(Path(manager, "LONG"), std::string(399, 'v'));
    EXPECT_EQ(Path(manager, std::string(399, 'a').c_str()), "fits");
    EXPECT_EQ(Path(manager, std::string(399, 'b').c_str()), "cut");
    EXPECT_EQ(Path(manager, "LAST"), "last");
}

TEST(ResourceManager, BackslashesInValuesBecomeSlashes) {
    TempDir dir;
    WriteWholeFile("resource.cfg", "TEXTURE_DATA ..\\data\\textures\\\nLIT lit/mixed\\path\n");
    ReportLog log;
    ResourceManager manager;
    EXPECT_EQ(Path(manager, "TEXTURE_DATA"), "../data/textures/");
    EXPECT_EQ(Path(manager, "LIT"), "lit/mixed/path");
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
        EXPECT_TRUE(log.reports.empty());
    }
    // Random files: at most one error, and only the odd-count one; the sanitizers watch the rest.
    std::mt19937 random(20240611);
    for (int round = 0; round < 200; ++round) {
        TempDir dir;
        std::string bytes(random() % 3000, '\0');
        for (char& byte : bytes) byte = char(random());
        WriteWholeFile("resource.cfg", bytes);
        ReportLog log;
        {
            ResourceManager manager;
            manager.GetResourcePath("LIT");
        }
        int errors = 0;
        for (const Report& report : log.reports) {
            if (report.slot != 'E') continue;
            ++errors;
            EXPECT_EQ(report.code, uint32_t(CorvaneCodeError));
            EXPECT_EQ(report.text.rfind("Failed to find second line in RESOURCE.CFG\n", 0), 0u);
        }
        EXPECT_LE(errors, 1) << "round " << round;
    }
}

}  // namespace
