// Properties on two levels and the environment file's round trip.
#include <gtest/gtest.h>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "testutil.h"

namespace
{

struct EnvTest : ::testing::Test {
    TempDir dir;
    session_t session;
    void SetUp() override
    {
        open_test_log(dir.file("test.log"));
        env_set_string(&session, "tmp_dir", dir.path);
    }
    void TearDown() override { log_disable(); }
};

TEST_F(EnvTest, NamesTranslateDashesOnWriteOnly)
{
    env_set_string(&session, "a-b", "1");
    EXPECT_EQ(env_get_string(&session, "a-b"), "");
    EXPECT_EQ(env_get_string(&session, "a_b"), "1");
    env_set_string(&session, "empty", "");
    EXPECT_TRUE(env_exists(&session, "empty"));
}

TEST_F(EnvTest, LayerScopeShadowsAndKeepsGlobalUntouched)
{
    seq_layer_t layer;
    env_set_string(&session, "x", "global");
    session.scope = &layer;
    env_set_string(&session, "x", "local");
    env_cat_string(&session, "y", "1");
    env_cat_string(&session, "y", "2");
    EXPECT_EQ(env_get_string(&session, "x"), "local");
    EXPECT_EQ(env_get_string(&session, "y"), "12");
    env_remove(&session, "y"); // removes only globally
    EXPECT_TRUE(env_exists(&session, "y"));
    EXPECT_EQ(env_dump(&session).find("local"), std::string::npos);
    session.scope = nullptr;
    EXPECT_EQ(env_get_string(&session, "x"), "global");
    EXPECT_FALSE(env_exists(&session, "y"));
}

TEST_F(EnvTest, HiddenValuesNeverReachTheLog)
{
    env_set_string(&session, "a__HIDE__b", "secret-value");
    EXPECT_EQ(env_get_string(&session, "a__HIDE__b"), "secret-value");
    std::string log = read_text(dir.file("test.log"));
    EXPECT_EQ(log.find("secret-value"), std::string::npos);
    EXPECT_NE(log.find("key \"a__HIDE__b\" with value [HIDDEN] (length 10)"), std::string::npos);
}

// Saves one property, restores it into a fresh session, and returns what
// that session then holds under the name.
static std::string round_trip(const std::string& dir, const std::string& value, const char* name = "v")
{
    session_t from, to;
    env_set_string(&from, "tmp_dir", dir);
    env_set_string(&from, "v", value);
    env_save(&from);
    env_set_string(&to, "tmp_dir", dir);
    EXPECT_EQ(env_restore(&to), 0);
    return env_get_string(&to, name);
}

TEST_F(EnvTest, EnvironmentFileRoundTripKeepsItsOddities)
{
    EXPECT_EQ(round_trip(dir.path, "a#b"), "a");
    EXPECT_EQ(round_trip(dir.path, "one\ntwo"), "one\ntwo");
    // After a blank line the gathered text becomes a property name of its
    // own; the value keeps only its first line.
    EXPECT_EQ(round_trip(dir.path, "first\n\nthird"), "first");
    EXPECT_EQ(round_trip(dir.path, "first\n\nthird", "\n"), "\n\nthird");
}

TEST_F(EnvTest, EnvFileIsWorldReadableAndInNameOrder)
{
    env_set_string(&session, "b", "2");
    env_set_string(&session, "a", "1");
    env_save(&session);
    std::string file = dir.file(ENV_FILE_NAME);
    EXPECT_EQ(read_text(file), "a#1\nb#2\ntmp_dir#" + dir.path + "\n");
    struct stat st;
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777u);
}

TEST_F(EnvTest, SaveToUnwritableDirectoryIsSilentAndRestoreFails)
{
    env_set_string(&session, "tmp_dir", dir.file("missing/dir"));
    EXPECT_EQ(env_save(&session), 0);
    EXPECT_EQ(env_restore(&session), -1);
}

} // namespace
