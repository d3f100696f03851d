// Operand expansion: references, quotes per level, entities, and the guards
// against texts that never finish expanding.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "testutil.h"

namespace
{

struct ExpandTest : ::testing::Test {
    TempDir dir;
    session_t session;
    void SetUp() override { open_test_log(dir.file("test.log")); }
    void TearDown() override { log_disable(); }
    std::string expand(const std::string& op) { return expand_string(&session, op); }
    void set(const char* name, const char* value) { env_set_string(&session, name, value); }
    std::string log() { return read_text(dir.file("test.log")); }
};

TEST_F(ExpandTest, ReferencesAreReplacedByValuesAtAnyDepth)
{
    set("a", "1");
    set("b", "2");
    set("chain", "${b}${a}");
    set("my name", "spaced");
    EXPECT_EQ(expand("${a}${b}"), "12");
    EXPECT_EQ(expand("a${none}b"), "ab");
    EXPECT_EQ(expand("<${chain}>"), "<21>");
    EXPECT_EQ(expand("${my name}"), "spaced");

    // A deep but finite chain resolves completely.
    for (int i = 0; i < 40; i++)
        set(("p" + std::to_string(i)).c_str(), ("${p" + std::to_string(i + 1) + "}").c_str());
    set("p40", "end");
    EXPECT_EQ(expand("${p0}"), "end");
}

TEST_F(ExpandTest, EachLevelStripsOnePairOfEnclosingQuotes)
{
    EXPECT_EQ(expand("\"abc\""), "abc");
    EXPECT_EQ(expand("'abc\""), "abc");
    EXPECT_EQ(expand("abc'"), "abc");
    EXPECT_EQ(expand("a\"b"), "a\"b");
    EXPECT_EQ(expand("\""), "");

    set("quoted", "\"\"v\"\"");
    EXPECT_EQ(expand("\"${quoted}\""), "\"v\"");
    // A quote at the end of a value is stripped by the next level only when
    // the reference ends the operand.
    set("tail", "x\"");
    EXPECT_EQ(expand("pre${tail}"), "prex");
    EXPECT_EQ(expand("${tail}post"), "x\"post");
}

TEST_F(ExpandTest, OnlyDollarBraceStartsAReferenceAndTheFirstBraceCloses)
{
    set("a", "A");
    set("b", "B");
    EXPECT_EQ(expand("$<a>"), "$<a>");
    EXPECT_EQ(expand("${b} $<a>"), "B A");
    // The first '}' anywhere closes: the name is "a> ${b", which is missing.
    EXPECT_EQ(expand("$<a> ${b}"), "");
    EXPECT_EQ(expand("${a> rest"), "A rest");
    // Dollars that start no reference stay.
    EXPECT_EQ(expand("${b}$x$"), "B$x$");
    EXPECT_EQ(expand("\\$<a> ${b}"), "\\$<a> B");
}

TEST_F(ExpandTest, EntitiesDecodeOncePerLevelInTableOrder)
{
    EXPECT_EQ(expand("&lt;b&gt;"), "<b>");
    EXPECT_EQ(expand("&quot;x&quot; &amp; y"), "\"x\" & y");
    // "&amp;lt;" becomes "&lt;" in one pass: the "&lt;" pass ran before.
    EXPECT_EQ(expand("&amp;lt;"), "&lt;");
    // Through a reference there are two levels, hence two decodings.
    set("e", "&amp;lt;");
    EXPECT_EQ(expand("${e}"), "<");
}

TEST_F(ExpandTest, OperandWithoutCloserComesBackAsGiven)
{
    set("a", "A");
    EXPECT_EQ(expand("\"x ${a\""), "\"x ${a\"");
    EXPECT_NE(log().find("expand_operand: operand \"x ${a\" is erroneous"), std::string::npos);
    // A value without closer is returned as it stands at its level.
    set("broken", "\"${open\"");
    EXPECT_EQ(expand("${broken}"), "\"${open\"");
}

TEST_F(ExpandTest, CyclesAndEscapedReferencesStopAtTheDepthLimit)
{
    set("self", "${self}");
    set("ping", "x${pong}");
    set("pong", "${ping}");
    EXPECT_EQ(expand("${self}"), "${self}");
    std::string cycled = expand("${ping}");
    EXPECT_EQ(cycled, std::string(32, 'x') + "${ping}");
    // A backslash keeps "${" in the text, so it would recurse for ever.
    EXPECT_EQ(expand("\\${x}"), "\\${x}");
    EXPECT_NE(log().find("expand_operand: recursion depth 64 reached"), std::string::npos);
}

TEST_F(ExpandTest, SelfDoublingValueStopsAtTheGrowthLimit)
{
    set("twice", "${twice}${twice}");
    std::string text = expand("${twice}");
    EXPECT_LE(text.size(), 16u << 20);
    EXPECT_NE(text.find("${twice}"), std::string::npos);
    EXPECT_NE(log().find("would exceed"), std::string::npos);
}

TEST_F(ExpandTest, HiddenValuesStayOutOfExpansionLogLines)
{
    set("pw__HIDE__", "s3cret${pw__HIDE__}");
    bool hidden = false;
    char* text = expand_operand_marked(&session, "${pw__HIDE__}", &hidden);
    ASSERT_NE(text, nullptr);
    free(text);
    EXPECT_TRUE(hidden);
    std::string lines = log();
    EXPECT_NE(lines.find("recursion depth 64 reached, operand left as it is: [HIDDEN]"), std::string::npos);
    EXPECT_EQ(lines.find("s3cret"), std::string::npos);
}

} // namespace
