// The condition language: tokens, merging, negation, parentheses, quoted
// operands and the comparison of one term.
#include <gtest/gtest.h>

#include <climits>

#include "cond.h"
#include "env.h"
#include "log.h"
#include "testutil.h"

namespace
{

struct CondTest : ::testing::Test {
    TempDir dir;
    session_t session;
    void SetUp() override { open_test_log(dir.file("test.log")); }
    void TearDown() override { log_disable(); }
    int cond(const std::string& text) { return cond_is_true(text.c_str(), &session); }
    void set(const char* name, const char* value) { env_set_string(&session, name, value); }
    std::string log() { return read_text(dir.file("test.log")); }
    bool logged(const std::string& text) { return log().find(text) != std::string::npos; }
};

TEST_F(CondTest, BlankConditionsAreTrue)
{
    EXPECT_EQ(cond(""), 1);
    EXPECT_EQ(cond("   "), 1);
    EXPECT_TRUE(logged("cond_is_true: string is empty. Return true"));
}

TEST_F(CondTest, LoneOperandTestsExistenceWithoutExpansion)
{
    set("EMPTY", "");
    set("A", "1");
    EXPECT_EQ(cond("EMPTY"), 1);
    EXPECT_EQ(cond("MISSING"), 0);
    EXPECT_EQ(cond("${A}"), 0);
    set("${A}", "named oddly");
    EXPECT_EQ(cond("${A}"), 1);
    // Operators only count between blanks: this is one operand.
    EXPECT_EQ(cond("${A}=1"), 0);
    EXPECT_EQ(cond("  ${A}   =    1  "), 1);
}

TEST_F(CondTest, MergingHasNoPrecedenceAndNoEarlyStop)
{
    set("A", "1");
    set("B", "0");
    set("C", "0");
    // (A OR B) AND C, not A OR (B AND C).
    EXPECT_EQ(cond("${A} = 1 OR ${B} = 1 AND ${C} = 1"), 0);
    EXPECT_EQ(cond("${C} = 1 AND ${B} = 1 OR ${A} = 1"), 1);
    EXPECT_EQ(cond("${A} = 1 XOR ${B} = 0"), 0);
    EXPECT_EQ(cond("${A} = 1 xor ${B} = 0"), 1);
    // A false first term doesn't stop the second from running.
    EXPECT_EQ(cond("${B} = 1 AND ${C} = 7"), 0);
    EXPECT_TRUE(logged("execute: l='0' -> o='=' -> r='7'"));
    // Without a logic word the second term replaces the first, and so it
    // does after a logic word in the wrong case.
    EXPECT_EQ(cond("${A} = 1 ${B} = 1"), 0);
    EXPECT_EQ(cond("${A} = 1 and ${B} = 0"), 1);
    EXPECT_TRUE(logged("get_merge_mode: invalid merge mode 'and'"));
    // A logic word right after a lone operand evaluates it first.
    EXPECT_EQ(cond("A AND ${B} = 0"), 1);
    EXPECT_EQ(cond("MISSING AND ${B} = 0"), 0);
}

TEST_F(CondTest, NegationIsRefusedDirectlyAfterATerm)
{
    set("X", "1");
    EXPECT_EQ(cond("${X} = 1 NOT ${Y} = 2"), -1);
    EXPECT_TRUE(logged("cond_is_true: negative is not allowed here"));
    EXPECT_EQ(cond("${X} = 1 AND NOT ${Y} = 2"), 1);
    EXPECT_EQ(cond("NOT NOT X"), 0);
    EXPECT_EQ(cond("! ${X} = 2"), 1);
    // After a parenthesis or a quoted operand the old merge mode stays, so
    // NOT is refused only when that mode is none.
    EXPECT_EQ(cond("( ${X} = 1 ) NOT ${X} = 2"), -1);
    EXPECT_EQ(cond("${X} = 1 OR ( ${X} = 1 ) NOT ${X} = 2"), 1);
    EXPECT_EQ(cond("${X} = 1 AND ${X} = \"1\" NOT ${X} = 2"), 1);
}

TEST_F(CondTest, MergeModeSurvivesQuotedAndParenthesisedTerms)
{
    set("A", "1");
    set("B", "2");
    set("C", "3");
    // An unquoted right operand resets the mode: C replaces the result.
    EXPECT_EQ(cond("${A} = 1 AND ${B} = 9 ${C} = 3"), 1);
    // A quoted one keeps AND in force for the next term.
    EXPECT_EQ(cond("${A} = 1 AND ${B} = \"9\" ${C} = 3"), 0);
    EXPECT_EQ(cond("${A} = 1 AND ( ${B} = 9 ) ${C} = 3"), 0);
}

TEST_F(CondTest, ParenthesesOnlyCountAndAreEvaluatedFlat)
{
    set("A", "1");
    set("B", "0");
    set("C", "0");
    EXPECT_EQ(cond("( ${A} = 1 OR ( ${B} = 2 ) )"), 1);
    // Flat: ${A} = 1 OR ${B} = 2 AND ${C} = 3 from left to right.
    EXPECT_EQ(cond("( ${A} = 1 OR ( ${B} = 2 AND ${C} = 3 ) ) "), 0);
    EXPECT_EQ(cond("NOT ( ${A} = 1 )"), 0);
    EXPECT_EQ(cond("( )"), 1);
    // A longer token that starts with a parenthesis is an operand.
    set("(A", "x");
    EXPECT_EQ(cond("(A"), 1);
    EXPECT_EQ(cond("( ${A} = 1"), -1);
    EXPECT_TRUE(logged("cond_is_true: Right parentheses is missed"));
    // A syntax error inside is a failing term, not an error of the whole.
    EXPECT_EQ(cond("${A} = 1 OR ( AND )"), 1);
    EXPECT_EQ(cond("${A} = 0 OR ( AND )"), -1);
}

TEST_F(CondTest, QuotedRightOperandsHoldBlanksAndLoseOneQuotePair)
{
    set("ONE", "a b");
    set("TWO", "a  b");
    set("EMPTY", "");
    EXPECT_EQ(cond("${ONE} = \"a     b\""), 1);
    EXPECT_EQ(cond("${TWO} = \"a  b\""), 0);
    EXPECT_EQ(cond("${EMPTY} = \""), 1);
    EXPECT_EQ(cond("${EMPTY} = \"\""), 1);
    EXPECT_EQ(cond("${ONE} = \"a b"), -1);
    EXPECT_TRUE(logged("cond_is_true: Right \" is missed"));
    // A quote escaped by a backslash doesn't close.
    EXPECT_EQ(cond("${ONE} = \"a \\\""), -1);
    // Left operands can't be quoted; a stray quote at the end is refused.
    EXPECT_EQ(cond("\"a\" = a"), -1);
    EXPECT_EQ(cond("${ONE} = a\""), -1);
    EXPECT_TRUE(logged("cond_is_true: token a\" in state 4 is invalid"));
}

TEST_F(CondTest, ComparisonPicksNumbersThenVersionsThenBytes)
{
    EXPECT_EQ(cond("1.10 > 1.9"), 1);
    EXPECT_EQ(cond("abc > abd"), 0);
    EXPECT_EQ(cond("2 = 2.0"), 1);
    EXPECT_EQ(cond("${NONE} = 0"), 1);
    EXPECT_EQ(cond("99999999999 > 2147483647"), 1);
    EXPECT_EQ(cond("1.2.3.9 < 1.2.4.1"), 1);
    // Not equal is always true for versions, never for equal numbers.
    EXPECT_EQ(cond("12 != 12"), 0);
    EXPECT_EQ(cond("1.2 != 1.2"), 1);
    EXPECT_EQ(cond("a != a"), 0);
}

TEST_F(CondTest, CompareVersionsCutsTheLeftOperandOnly)
{
    char left[] = "2.1-7", right[] = "2.1";
    EXPECT_EQ(compare_versions(left, right, COND_OP_EQ), 1);
    // "1-2.5" reads as 1.5 on the right, but is cut to 1 on the left.
    char short_left[] = "1.5", odd[] = "1-2.5", odd_left[] = "1-2.5", short_right[] = "1.5";
    EXPECT_EQ(compare_versions(short_left, odd, COND_OP_EQ), 1);
    EXPECT_EQ(compare_versions(odd_left, short_right, COND_OP_EQ), 0);
    char five[] = "1.2.3.4.9", four[] = "1.2.3.4";
    EXPECT_EQ(compare_versions(five, four, COND_OP_EQ), 1);
    char big[] = "1.99999999999", small[] = "1.5";
    EXPECT_EQ(compare_versions(big, small, COND_OP_GT), 1);
    EXPECT_TRUE(logged("compare_versions: versions became 1.2.3.4 and 1.2.3.4"));
}

TEST_F(CondTest, EndOperatorGivesTheOffsetOfTheFirstOccurrence)
{
    EXPECT_EQ(cond("abc >> c"), 1);
    // First occurrence at offset 0, not the ending: false.
    EXPECT_EQ(cond("abcabc >> abc"), 0);
    // At offset 1: true, although abc is not the ending.
    EXPECT_EQ(cond("xabcd >> abc"), 1);
    // Further on, and when absent: neither 0 nor 1.
    EXPECT_EQ(cond("xyabcd >> abc"), 2);
    int absent = cond("abc >> zz");
    EXPECT_TRUE(absent != 0 && absent != 1);
    EXPECT_EQ(cond("NOT abc >> zz"), 0);
    EXPECT_EQ(cond("abc >> ${NONE}"), 0);
    EXPECT_EQ(cond("${NONE} >> ${NONE}"), 1);
}

TEST_F(CondTest, StartIncludeAndRegexOperators)
{
    set("PATH_", "/opt/kelm/bin");
    EXPECT_EQ(cond("${PATH_} << /opt"), 1);
    EXPECT_EQ(cond("${PATH_} >< kelm"), 1);
    EXPECT_EQ(cond("${PATH_} -ninc kelm"), 0);
    EXPECT_EQ(cond("abc >< ${NONE}"), 1);
    EXPECT_EQ(cond("abc <> ${NONE}"), 0);
    EXPECT_EQ(cond("${PATH_} =~ kel+m/b"), 1);
    EXPECT_EQ(cond("${PATH_} -re ^/opt/[a-z]+$"), 0);
    EXPECT_EQ(cond("${PATH_} =~ a(b"), -1);
    EXPECT_TRUE(logged("execute: pattert a(b is not valid regex"));
}

TEST_F(CondTest, BothSpellingsGiveTheSameCode)
{
    EXPECT_EQ(get_operation("="), get_operation("-eq"));
    EXPECT_EQ(get_operation("=~"), get_operation("-re"));
    EXPECT_EQ(get_operation("=="), -1);
    EXPECT_EQ(get_merge_mode("Or"), COND_MERGE_NONE);
    EXPECT_EQ(cond("5 -GE 3"), -1);
    EXPECT_TRUE(logged("execute: Unknown operation."));
    EXPECT_EQ(cond("5 -ge 3"), 1);
}

TEST_F(CondTest, FailingTermsGoThroughTheMergeAsNumbers)
{
    EXPECT_EQ(cond("X -EQ 1 OR a = a"), 1);
    EXPECT_EQ(cond("a = a AND X -EQ 1"), -1);
    EXPECT_EQ(cond("NOT X -EQ 1"), 0);
    // Products of large -end offsets saturate instead of overflowing.
    EXPECT_EQ(merge_result(INT_MAX, 3, COND_MERGE_AND), INT_MAX);
    EXPECT_EQ(merge_result(2, -1, COND_MERGE_XOR), 1);
}

TEST_F(CondTest, SyntaxErrorsGiveMinusOneAndUnfinishedTermsAreDropped)
{
    set("X", "1");
    EXPECT_EQ(cond("AND X"), -1);
    EXPECT_TRUE(logged("cond_is_true: Logic should not be a first entry"));
    EXPECT_EQ(cond("${X} = 1 AND"), 1);
    EXPECT_EQ(cond("X ="), 0);
    EXPECT_EQ(cond("= 1"), -1);
    EXPECT_EQ(cond("X Y"), -1);
    EXPECT_EQ(cond("${X} = = 1"), -1);
    EXPECT_TRUE(logged("cond_is_true: token = in state 4 is invalid"));
}

TEST_F(CondTest, OperandsLongerThanTheBuffersAreRefused)
{
    std::string fits(4095, 'a');
    set(fits.c_str(), "");
    EXPECT_EQ(cond(fits), 1);
    EXPECT_EQ(cond(fits + "a"), -1);
    EXPECT_EQ(cond("${X} = " + std::string(5000, 'b')), -1);
    std::string many = "(";
    for (int i = 0; i < 1000; i++)
        many += " ${X} = 1 OR";
    EXPECT_EQ(cond(many + " ${X} = 1 )"), -1);
}

TEST_F(CondTest, HiddenValuesStayOutOfTheLog)
{
    set("pw__HIDE__", "4.3.2.1");
    EXPECT_EQ(cond("${pw__HIDE__} > 1.0"), 1);
    EXPECT_EQ(cond("${pw__HIDE__} = 9"), 0);
    set("re__HIDE__", "s3cr(t");
    EXPECT_EQ(cond("x =~ ${re__HIDE__}"), -1);
    std::string lines = log();
    EXPECT_EQ(lines.find("4.3.2.1"), std::string::npos);
    EXPECT_EQ(lines.find("s3cr(t"), std::string::npos);
    EXPECT_TRUE(logged("execute: l='[HIDDEN]' -> o='=' -> r='9'"));
}

} // namespace
