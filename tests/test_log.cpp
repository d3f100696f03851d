// The log's line format, its states, and the fallback choice of log file.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <regex>

#include "env.h"
#include "log.h"
#include "testutil.h"
#include "utils.h"

namespace
{

struct LogTest : ::testing::Test {
    TempDir dir;
    void TearDown() override { log_disable(); }
};

TEST_F(LogTest, LinesCarryTimeLevelAndPrefix)
{
    open_test_log(dir.file("a.log"));
    print_log("f: plain %d", 1);
    warn("f: careful");
    error("f: broken");
    std::string text = read_text(dir.file("a.log"));
    EXPECT_TRUE(std::regex_search(text, std::regex("^[0-9]+ - : f: plain 1\n")));
    EXPECT_TRUE(std::regex_search(text, std::regex("\n[0-9]+ - WARN: : f: careful\n")));
    EXPECT_TRUE(std::regex_search(text, std::regex("\n[0-9]+ - ERROR: : f: broken\n$")));
}

static int handler_calls;
static void count_handler(void)
{
    handler_calls++;
}

TEST_F(LogTest, HandlersAndPrefixResetOnReopen)
{
    open_test_log(dir.file("a.log"));
    ASSERT_EQ(set_warn_handle(count_handler), 0);
    EXPECT_EQ(set_warn_handle(nullptr), -1); // keeps the existing handler
    log_set_prefix("pfx");
    handler_calls = 0;
    warn("one");
    print_log("two"); // print_log has no handler
    EXPECT_EQ(handler_calls, 1);
    EXPECT_NE(read_text(dir.file("a.log")).find("pfx: one"), std::string::npos);

    open_test_log(dir.file("b.log"));
    warn("three");
    EXPECT_EQ(handler_calls, 1);
    EXPECT_NE(read_text(dir.file("b.log")).find(" - WARN: : three"), std::string::npos);
}

TEST_F(LogTest, OpeningInMissingDirectoryLeavesNoStream)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(log_init(nullptr, dir.file("no/such/x.log").c_str()), 0);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("Can't open "), std::string::npos);
    EXPECT_EQ(log_is_ready(), -3);
    EXPECT_EQ(error("nothing"), -3); // reports without a log are silent
}

TEST_F(LogTest, InitLoggingFallsBackAndRecordsTheName)
{
    session_t engine, command_line;
    env_set_string(&command_line, "log_file", dir.file("missing/dir/x.log"));
    std::string cwd = std::filesystem::current_path();
    ASSERT_EQ(chdir(dir.path.c_str()), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(init_logging(&engine, &command_line), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(env_get_string(&engine, "log_file"), "./install.log");
    EXPECT_TRUE(is_file(dir.file("install.log").c_str()));
    ASSERT_EQ(chdir(cwd.c_str()), 0);

    env_set_string(&command_line, "log_disable", "");
    EXPECT_EQ(init_logging(&engine, &command_line), 0);
    EXPECT_EQ(log_is_ready(), -3);
}

} // namespace
