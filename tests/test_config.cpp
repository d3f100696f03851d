// Configuration bootstrap: product.ini's reading rules, engine paths, and the
// records of the string mode.
#include <gtest/gtest.h>

#include <unistd.h>

#include "config.h"
#include "env.h"
#include "log.h"
#include "testutil.h"
#include "utils.h"

namespace
{

struct ConfigTest : ::testing::Test {
    TempDir dir;
    session_t session;
    void SetUp() override { open_test_log(dir.file("t.log")); }
    void TearDown() override { log_disable(); }
    int load(std::string text) { return load_product_info_text(&session, text.data(), (int)text.size()); }
};

TEST_F(ConfigTest, ProductIniSplitsAtEqualsSkippingEmptyPieces)
{
    EXPECT_EQ(load("# comment\n\na=b=c\r\n=x\nname=\nspaced = v \n"), 0);
    EXPECT_EQ(env_get_string(&session, "a"), "b");
    EXPECT_TRUE(env_exists(&session, "x"));
    EXPECT_TRUE(env_exists(&session, "name"));
    EXPECT_EQ(env_get_string(&session, "spaced "), " v ");
    EXPECT_NE(read_text(dir.file("t.log")).find("load_product_info: can not read value of the property"),
              std::string::npos);
    EXPECT_EQ(load("ok=1\n==\nlater=2\n"), -1);
    EXPECT_FALSE(env_exists(&session, "later"));
}

TEST_F(ConfigTest, RelativeScriptNameAnchorsAtWorkingDirectory)
{
    env_set_string(&session, "SCRIPT_NAME", "kelm");
    const char* saved = getenv("PWD");
    std::string keep = saved ? saved : "";
    setenv("PWD", "/work/pkg", 1); // the working directory is taken from PWD
    // The root cab is empty, so product.ini is missing: the paths are set
    // before that failure.
    EXPECT_EQ(init_configuration(&session), -1);
    if (saved)
        setenv("PWD", keep.c_str(), 1);
    else
        unsetenv("PWD");
    EXPECT_EQ(env_get_string(&session, "ENGINE_DIR"), "/work/pkg/.");
    EXPECT_EQ(env_get_string(&session, "PACKAGE_DIR"), "/work/pkg/./../../");
    EXPECT_EQ(env_get_string(&session, "CONFIG_DIR"), "/work/pkg/./..");
    EXPECT_EQ(env_get_string(&session, "EUID"), std::to_string(geteuid()));
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE_CANCEL"), "4");
    std::string arch = env_get_string(&session, "ARCH");
    EXPECT_TRUE(arch == "ORVAN64" || arch == "NARROW32");
}

TEST_F(ConfigTest, StringIdsListKeepsInnerEmptyNames)
{
    std::string out = dir.file("s.sh");
    env_set_string(&session, "__get_string__", out);
    env_set_string(&session, "a", "1");
    env_set_string(&session, "b", "it's");
    auto records = [&](const char* ids) {
        env_set_string(&session, "string_ids", ids);
        EXPECT_EQ(configuration_get_strings(&session), 0);
        std::string text = read_text(out);
        int count = 0;
        for (size_t at = 0; (at = text.find("=$(cat<<EOM\n", at)) != std::string::npos; at++)
            count++;
        return count;
    };
    EXPECT_EQ(records("a;b"), 2);
    EXPECT_EQ(records("a;;b"), 3);
    EXPECT_EQ(records("a;"), 1);
    records("b");
    EXPECT_EQ(read_text(out), "LI_b=$(cat<<EOM\nit\\'s\nEOM\n)\n\n");
}

TEST_F(ConfigTest, TempFolderUnderTmpDir)
{
    env_set_string(&session, "tmp_dir", dir.path);
    ASSERT_EQ(configuration_create_tempfolder(&session), 0);
    std::string folder = env_get_string(&session, "TEMP_FOLDER");
    EXPECT_EQ(folder.rfind(dir.path + "/install.", 0), 0u);
    EXPECT_TRUE(is_dir(folder.c_str()));
    env_set_string(&session, "tmp_dir", dir.file("missing"));
    EXPECT_EQ(configuration_create_tempfolder(&session), -1);
}

} // namespace
