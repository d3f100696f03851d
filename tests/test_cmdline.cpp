// The command-line grammar: what becomes a property, and what is refused.
#include <gtest/gtest.h>

#include <cstdlib>

#include "cmdline.h"
#include "env.h"
#include "log.h"
#include "testutil.h"

namespace
{

struct Parsed {
    int rc;
    env_map_t props;
    std::string output;
};

Parsed parse(std::vector<std::string> args)
{
    args.insert(args.begin(), "kelm");
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(arg.data());
    session_t engine, command_line;
    testing::internal::CaptureStdout();
    int rc = parse_command_line(&engine, (int)argv.size(), argv.data(), &command_line);
    std::string out = testing::internal::GetCapturedStdout();
    return {rc, command_line.env, out};
}

TEST(CommandLine, ShortcutsValueFormsAndTheOptionOrValueDecision)
{
    Parsed p = parse({"-s", "/a/b", "--lang=de", "-v", "--tmp-dir", "x"});
    EXPECT_EQ(p.rc, 0);
    EXPECT_EQ(p.props, (env_map_t{{"silent", "/a/b"}, {"lang", "de"}, {"version", ""}, {"tmp_dir", "x"}}));
    // A dash alone or a negative number is a value; a shortcut is not.
    EXPECT_EQ(parse({"--x", "-5"}).props, (env_map_t{{"x", "-5"}}));
    Parsed shortcut = parse({"--x", "-s"});
    EXPECT_EQ(shortcut.props, (env_map_t{{"x", ""}, {"silent", ""}}));
    // The second character being a dash makes an option of anything.
    Parsed dashed = parse({"--lang", "a-b"});
    EXPECT_EQ(dashed.rc, -1);
    EXPECT_EQ(dashed.props, (env_map_t{{"lang", ""}}));
    EXPECT_NE(dashed.output.find("Incorrect command-line argument: arg 2, key a-b"), std::string::npos);
}

TEST(CommandLine, KeysAreTranslatedAndChecked)
{
    EXPECT_EQ(parse({"--Foo-Bar=1"}).props, (env_map_t{{"Foo_Bar", "1"}}));
    EXPECT_EQ(parse({"--a=b=c"}).props, (env_map_t{{"a", "b=c"}}));
    Parsed bad = parse({"--1x=2"});
    EXPECT_EQ(bad.rc, -1);
    EXPECT_EQ(bad.props, (env_map_t{{"1x", "2"}})); // stored before the check
    EXPECT_EQ(parse({"-silent"}).rc, -1);
    EXPECT_EQ(parse({"-x"}).rc, -1);
}

TEST(CommandLine, QueryModePrefixesValuesOnly)
{
    Parsed p = parse({"--query", "--name=v", "--other", "w", "--flag"});
    EXPECT_EQ(p.props, (env_map_t{{"query", ""}, {"query_name", "v"}, {"query_other", "w"}, {"flag", ""}}));
    EXPECT_EQ(parse({"--query=1", "--a=b"}).props, (env_map_t{{"query", "1"}, {"a", "b"}}));
}

TEST(CommandLine, ValuesAreExpandedAgainstAnEmptyEngine)
{
    EXPECT_EQ(parse({"--x=${HOME}", "--y", "'quoted'", "--z=&lt;"}).props,
              (env_map_t{{"x", ""}, {"y", "quoted"}, {"z", "<"}}));
}

TEST(CommandLine, MergeNeverOverridesConfiguration)
{
    TempDir dir;
    open_test_log(dir.file("t.log"));
    session_t engine;
    env_map_t options{{"PACKAGE_DIR", "/x"}, {"new", "1"}};
    env_set_string(&engine, "PACKAGE_DIR", "/real");
    EXPECT_EQ(commandline_merge(&engine, &options), 0);
    EXPECT_EQ(env_get_string(&engine, "PACKAGE_DIR"), "/real");
    EXPECT_EQ(env_get_string(&engine, "new"), "1");
    EXPECT_EQ(commandline_merge(&engine, nullptr), -1);
    log_disable();
}

} // namespace
