#include "base/diagnostics.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "base/quoted_text.h"
#include "platform/debug/debug_output.h"
#include "tests/support/report_capture.h"

namespace {

using Texts = std::vector<std::string>;

TEST(Diagnostics, DefaultHandlersWriteTheirPiecesInOrder) {
    DebugCapture capture;
    CorvaneWarning("low on %s", "space");
    CorvaneAlert("Could not open %s\n", "RESOURCE.CFG");
    CorvaneTrace("entering", "engine/scene.cpp", 17);
    CorvaneDebug("%d meshes", 3);
    EXPECT_EQ(capture.Pieces(),
              (Texts{"WARNING: ", "low on space", "\n", "ALERT: ", "Could not open RESOURCE.CFG\n", "\n",
                     "engine/scene.cpp(17) : TRACE entering\n", "DEBUG: ", "3 meshes", "\n"}));
    EXPECT_EQ(capture.Boxes(), (Texts{"ALERT: Could not open RESOURCE.CFG\n"}));
}

TEST(DiagnosticsDeathTest, DefaultErrorShowsTheTextThenAborts) {
    EXPECT_DEATH(CorvaneError("%s", "disk 100%d full"), "ERROR: disk 100%d full");
    EXPECT_DEATH(CorvaneAssert("x.cpp", 7), "ERROR: Assertion Failed: +x\\.cpp\\(7\\)");
}

TEST(Diagnostics, TextsAreFormattedOnceAndCutAtTheBuffer) {
    ReportCapture log;
    CorvaneError("%s", "50% %d %s %n");
    CorvaneErrorCode(77, "code %s", "%%");
    // An assertion pads its place to 48 columns, and goes on behind a returning handler.
    CorvaneAssert("src/a.cpp", 42);
    CorvaneAssert("a/very/long/path/of/more/than/forty-eight/characters.cpp", 3);
    const int line = __LINE__ + 1;
    ASSERT(log.warnings == 1);
    const std::string longText(1000, 'q');
    CorvaneWarning("%s", longText.c_str());
    CorvaneAssert(longText.c_str(), 2);
    Texts texts = log.Take();
    ASSERT_EQ(texts.size(), 7u);
    EXPECT_TRUE(texts[4].ends_with(std::string(__FILE__) + "(" + std::to_string(line) + ")\n")) << texts[4];
    texts.erase(texts.begin() + 4);
    EXPECT_EQ(
        texts,
        (Texts{"E513: 50% %d %s %n", "E77: code %%",
               "E512: Assertion Failed: " + std::string(39, ' ') + "src/a.cpp(42)\n",
               "E512: Assertion Failed: a/very/long/path/of/more/than/forty-eight/characters.cpp(3)\n",
               "W: " + std::string(399, 'q'), "E512: Assertion Failed: " + std::string(399 - 18, 'q')}));
}

}  // namespace

// Bytes from files reach a terminal only as printable text; a cut never splits a character.
TEST(QuotedText, EscapesWhatIsNotPrintableAndCutsWholeCharacters) {
    const std::tuple<std::string, std::string, std::string> rows[] = {
        // text, quoted with a limit of 8, escaped keeping line ends
        {"plain", "\"plain\"", "plain"},
        {"a\"b\\c", "\"a\\\"b\\\\c\"", "a\"b\\c"},
        {"\x1b[2J\n\t\x7f", "\"\\x1B[2J\\x0A\\x09\\x7F\"", "\\x1B[2J\n\t\\x7F"},
        {"caf\xc3\xa9 \xe2\x82\xac", "\"caf\xc3\xa9 \"...", "caf\xc3\xa9 \xe2\x82\xac"},
        {"abcdefg\xc3\xa9", "\"abcdefg\"...", "abcdefg\xc3\xa9"},  // the cut falls inside the é
        {"abcdefgh\xc3\xa9", "\"abcdefgh\"...", "abcdefgh\xc3\xa9"},
        {"\xc3(\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80", "\"\\xC3(\\xC0\\xAF\\xED\\xA0\\x80\\xF4\"...",
         "\\xC3(\\xC0\\xAF\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80"},  // broken, overlong, surrogate, too high
        {std::string("a\0b", 3), "\"a\\x00b\"", "a\\x00b"},
        {"\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf", "\"\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf\"", "\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf"},
    };
    for (const auto& [text, quoted, escaped] : rows) {
        EXPECT_EQ(QuotedText(text, 8), quoted) << text;
        EXPECT_EQ(EscapedText(text, true), escaped) << text;
    }
}
