// The text readers and string helpers that the package formats rely on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "log.h"
#include "testutil.h"
#include "utils.h"

namespace
{

std::vector<std::string> all_lines(std::string text)
{
    std::vector<std::string> lines;
    int position = 0;
    while (char* line = get_next_line(text.data(), (int)text.size(), &position))
        lines.push_back(line);
    return lines;
}

TEST(LineReader, SplitsOnNewlineAndCrLfOnly)
{
    EXPECT_TRUE(all_lines("").empty());
    EXPECT_EQ(all_lines("a\r\nb"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(all_lines("a\n\nb\n"), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(all_lines("a\rb\n"), (std::vector<std::string>{"a\rb"}));
}

std::vector<std::string> ini_pieces(const char* line, char delimiter)
{
    int count = -1;
    char** pieces = parse_ini_line(line, &count, delimiter);
    std::vector<std::string> result;
    for (int i = 0; i < count; i++)
        result.push_back(pieces[i]);
    free_ini_pieces(pieces, count);
    return result;
}

TEST(IniLine, KeepsInnerEmptyPiecesButNoTrailingOne)
{
    EXPECT_TRUE(ini_pieces("#a=b", '=').empty());
    EXPECT_EQ(ini_pieces("=x", '='), (std::vector<std::string>{"", "x"}));
    EXPECT_EQ(ini_pieces("a#", '#'), (std::vector<std::string>{"a"}));
    EXPECT_EQ(ini_pieces("c::d:", ':'), (std::vector<std::string>{"c", "", "d"}));
    std::string many;
    for (int i = 0; i < 25; i++)
        many += std::to_string(i) + ":";
    EXPECT_EQ(ini_pieces(many.c_str(), ':').size(), 25u);
}

TEST(Tokens, SeparatorIsAStringAndEmptiesAreOptional)
{
    using V = std::vector<std::string>;
    EXPECT_EQ(splitStringIntoTokens("a;;b", ";", false), (V{"a", "b"}));
    EXPECT_EQ(splitStringIntoTokens("a;;b", ";", true), (V{"a", "", "b"}));
    EXPECT_EQ(splitStringIntoTokens("a::b:c", "::", false), (V{"a", "b:c"}));
}

TEST(Strings, ReplaceDoesNotRescanInsertedText)
{
    EXPECT_EQ(replaceAllSubstrings("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(trimSpaces(" \t x y \n"), "x y");
    EXPECT_EQ(getExtension("a.tar.gz"), "gz");
    EXPECT_EQ(remove_newlines("a\nb<br>c"), "a b c");
    EXPECT_EQ(string_is_empty(" \n\t"), 1);
}

TEST(Regex, GroupsAndEndMark)
{
    regex_t* regex = get_regex("^([a-z]+)-([0-9]+)$", REG_EXTENDED);
    ASSERT_NE(regex, nullptr);
    EXPECT_EQ(regmatch(regex, "abc-12", 0), 1);
    regmatch_t* groups = get_regmatch(regex, "abc-12", 0);
    ASSERT_NE(groups, nullptr);
    EXPECT_EQ(groups[1].rm_eo, 3);
    EXPECT_EQ(groups[2].rm_so, 4);
    EXPECT_EQ(groups[3].rm_so, -1);
    free_regmatch(&groups);
    free_regex(&regex);
    EXPECT_EQ(get_regex("(", REG_EXTENDED), nullptr);
}

struct FilesTest : ::testing::Test {
    TempDir dir;
    void SetUp() override { open_test_log(dir.file("t.log")); }
    void TearDown() override { log_disable(); }
};

TEST_F(FilesTest, ContentReadersAndCommands)
{
    write_text(dir.file("f"), "one\n\ntwo\n");
    EXPECT_EQ(readContentOfTextFile(dir.file("f")), (std::vector<std::string>{"one", "", "two"}));
    char* whole = get_file(dir.file("f").c_str(), false);
    EXPECT_STREQ(whole, "one\n\ntwo\n");
    free(whole);

    EXPECT_EQ(get_file_or_command(dir.file("f").c_str()), "one\n\ntwo\n");
    EXPECT_EQ(get_file_or_command("$(echo &quot;a  b&quot;)"), "a  b\n");
    EXPECT_EQ(get_file_or_command("$()"), ""); // too short: read as a missing file
    EXPECT_EQ(get_command_output("printf 'a\\nb\\n'; exit 3"), "a\nb\n");
    EXPECT_EQ(execute_args("sh", "-c 'exit 5'"), 5);
    EXPECT_EQ(execute_args("/no/such/program", nullptr), 127);
}

TEST_F(FilesTest, RemovingTrees)
{
    std::string root = dir.file("r");
    ASSERT_EQ(system(("mkdir -p " + root + "/a/b " + root + "/c && touch " + root + "/c/keep").c_str()), 0);
    remove_dir_if_empty(root.c_str());
    EXPECT_FALSE(exists((root + "/a").c_str()));
    EXPECT_TRUE(is_file((root + "/c/keep").c_str()));
    EXPECT_EQ(remove_dir(root.c_str()), 0);
    EXPECT_FALSE(exists(root.c_str()));
    EXPECT_EQ(remove_file(dir.file("none").c_str(), true), 0); // a missing file may be fine
}

TEST(UserHome, EmptyNameUsesHome)
{
    const char* saved = getenv("HOME");
    std::string keep = saved ? saved : "";
    setenv("HOME", "/somewhere", 1);
    char* home = get_user_home("");
    EXPECT_STREQ(home, "/somewhere");
    free(home);
    unsetenv("HOME");
    EXPECT_EQ(get_user_home(""), nullptr);
    if (saved)
        setenv("HOME", keep.c_str(), 1);
}

} // namespace
