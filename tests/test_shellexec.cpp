// Shell functions run by real bash and sh, with the real engine binary
// dumping the shell's environment back.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "shellexec.h"
#include "store.h"
#include "testutil.h"
#include "utils.h"

namespace
{

// A literal with its NUL bytes, without the terminating one.
template <size_t N> std::string bytes(const char (&text)[N])
{
    return std::string(text, N - 1);
}

struct ShellexecTest : ::testing::Test {
    TempDir dir;
    session_t session;
    std::string temp;

    void SetUp() override
    {
        open_test_log(dir.file("test.log"));
        temp = dir.file("temp");
        mkdir(temp.c_str(), 0755);
        // The engine lies beside the scripts, as it does in a package.
        ASSERT_EQ(symlink(KELM_BINARY_DIR "/kelm", dir.file("kelm").c_str()), 0);
        env_set_string(&session, "TEMP_FOLDER", temp);
        env_set_string(&session, "ENGINE_DIR", dir.path);
        env_set_string(&session, "ENGINE_BINARY", "kelm");
    }
    void TearDown() override { log_disable(); }

    void script(const std::string& body, const std::string& name = "script.sh") { write_text(dir.file(name), body); }
    int run(const char* func, int posix = 0, const char* vars = nullptr, const char* component = nullptr,
            const char* file = "script.sh")
    {
        shellexec_args_t args = {file, component, func, posix, vars};
        return shellexec_execute(&session, &session.cab, &args);
    }
    std::string log() { return read_text(dir.file("test.log")); }
    std::string got(const std::string& name) { return read_text(dir.file(name)); }
};

const char* const RECORDING_SCRIPT = R"(
record() {
    for v in plain quoted backslash dollar newline expanded secret; do
        eval "printf '%s' \"\${LI_$v-unset}\"" > "$LI_OUT/$v"
    done
    if [ -n "${BASH_VERSION:-}" ]; then echo bash > "$LI_OUT/shell"; else echo sh > "$LI_OUT/shell"; fi
    export LI_plain
    export LI_changed='new "quoted" \ value
on two lines $1'
    LI_unexported=kept-inside
    export LI_brand_new=fresh
    export OTHER_VARIABLE=ignored
    return 5
}
)";

class ShellexecShells : public ShellexecTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(ShellexecShells, PropertiesGoInAndExportedChangesComeBack)
{
    int posix = GetParam();
    script(RECORDING_SCRIPT);
    env_set_string(&session, "OUT", dir.path);
    env_set_string(&session, "plain", "hello");
    env_set_string(&session, "quoted", "say \"hi\" now");
    env_set_string(&session, "backslash", "a\\b\\\\c\\");
    env_set_string(&session, "dollar", "home is $HOME");
    env_set_string(&session, "newline", "one\ntwo");
    env_set_string(&session, "expanded", "${plain}-x");
    env_set_string(&session, "__HIDE__pw", "s3cret-value");
    env_set_string(&session, "secret", "${__HIDE__pw}");
    env_set_string(&session, "changed", "old");
    env_set_string(&session, "unexported", "outside");
    // Not a shell name: its line runs as a command and sourcing goes on.
    env_set_string(&session, "bad.name", "v");
    size_t log_start = log().size();

    ASSERT_EQ(run("record", posix), 0); // the function's own status 5 is not reported

    EXPECT_EQ(got("shell"), posix == 1 ? "sh\n" : "bash\n");
    EXPECT_EQ(got("plain"), "hello");
    EXPECT_EQ(got("quoted"), "say 'hi' now");
    EXPECT_EQ(got("backslash"), "a\\b\\\\c\\");
    EXPECT_EQ(got("dollar"), std::string("home is ") + getenv("HOME"));
    EXPECT_EQ(got("newline"), "one\ntwo");
    EXPECT_EQ(got("expanded"), "hello-x");
    EXPECT_EQ(got("secret"), "s3cret-value");

    EXPECT_EQ(env_get_string(&session, "changed"), "new \"quoted\" \\ value\non two lines $1");
    EXPECT_EQ(env_get_string(&session, "brand_new"), "fresh");
    EXPECT_EQ(env_get_string(&session, "unexported"), "outside");
    EXPECT_FALSE(env_exists(&session, "OTHER_VARIABLE"));

    std::string calls = log().substr(log_start);
    EXPECT_EQ(calls.find("key \"plain\""), std::string::npos) << "an unchanged export is not set again";
    EXPECT_EQ(calls.find("s3cret-value"), std::string::npos);
    std::string init = got("temp/shellexec_init");
    EXPECT_NE(init.find("LI_backslash=\"a\\\\b\\\\\\\\c\\\\\"\n"), std::string::npos);
    EXPECT_NE(init.find("LI_bad.name=\"v\"\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(BashAndSh, ShellexecShells, ::testing::Values(0, 1));

TEST_F(ShellexecTest, EmptyVarsPassesNothingAndAnyOtherTextPassesAll)
{
    script("probe() { printf '%s' \"${LI_a-unset}/${LI_b-unset}\" > \"$1\"; }\n"
           "show() { probe " +
           dir.file("seen") + "; }\n");
    env_set_string(&session, "a", "1");
    env_set_string(&session, "b", "2");
    ASSERT_EQ(run("show", 0, ""), 0);
    EXPECT_EQ(got("seen"), "unset/unset");
    ASSERT_EQ(run("show", 0, "a"), 0);
    EXPECT_EQ(got("seen"), "1/2");
}

TEST_F(ShellexecTest, LayerScriptSeesLocalValuesAndChangesStayInTheLayer)
{
    seq_layer_t layer;
    layer.id = (char*)"layer1";
    mkdir((temp + "/layer1").c_str(), 0755);
    write_text(temp + "/layer1/layer.sh",
               "f() { printf '%s' \"$LI_x\" > " + dir.file("seen") + "; export LI_x=from-shell; }\n");
    env_set_string(&session, "x", "global");
    session.scope = &layer;
    env_set_string(&session, "x", "local"); // the later assignment wins in the shell
    int status = run("f", 0, nullptr, "anycomponent", "layer.sh");
    session.scope = nullptr;
    ASSERT_EQ(status, 0);
    EXPECT_EQ(got("seen"), "local");
    EXPECT_EQ(layer.env["x"], "from-shell");
    EXPECT_EQ(env_get_string(&session, "x"), "global");
}

TEST_F(ShellexecTest, ComponentScriptComesOutOfTheCab)
{
    std::string body = "f() { export LI_from=cab; }\n";
    // Index 0 is never extracted.
    write_cab(dir.file("install.cab"), {{"_internal_", "first", ""}, {"scripts", "cab.sh", body}});
    ASSERT_EQ(store_read_header(&session, &session.cab, dir.file("install.cab").c_str()), 0);

    ASSERT_EQ(run("f", 0, nullptr, "scripts", "cab.sh"), 0);
    EXPECT_EQ(env_get_string(&session, "from"), "cab");
}

TEST_F(ShellexecTest, FunctionThatExitsSkipsTheDump)
{
    script("quit() { export LI_x=changed; exit 3; }\n"
           "fine() { export LI_y=done; }\n");
    env_set_string(&session, "x", "original");
    EXPECT_EQ(run("quit"), 1) << "no output file yet";
    EXPECT_EQ(env_get_string(&session, "x"), "original");
    ASSERT_EQ(run("fine"), 0);
    EXPECT_EQ(env_get_string(&session, "y"), "done");
    env_set_string(&session, "y", "reset");
    // The output file of the last call is read again, and nothing of quit's.
    EXPECT_EQ(run("quit"), 0);
    EXPECT_EQ(env_get_string(&session, "x"), "original");
    EXPECT_EQ(env_get_string(&session, "y"), "done");
}

TEST_F(ShellexecTest, HangingFunctionIsKilledAtItsLimit)
{
    script("hang() { while :; do sleep 0.05; done; }\n"
           "quick() { export LI_q=yes; }\n");
    run("hang:1");
    EXPECT_EQ(env_get_string(&session, "KELM_SHELLEXEC_STATUS"), "killed");
    EXPECT_EQ(log().find("second 2, querying process"), std::string::npos);

    EXPECT_EQ(run("quick:5"), 0);
    EXPECT_EQ(env_get_string(&session, "KELM_SHELLEXEC_STATUS"), "") << "cleared by each call";
    EXPECT_EQ(env_get_string(&session, "q"), "yes");
}

// An init file that cannot be written ends the child, not the caller's copy.
TEST_F(ShellexecTest, UnwritableInitFileRunsNoShell)
{
    script("f() { echo ran > " + dir.file("ran") + "; }\n");
    env_set_string(&session, "TEMP_FOLDER", dir.file("missing"));
    EXPECT_EQ(run("f"), 1);
    EXPECT_FALSE(exists(dir.file("ran").c_str()));
}

TEST_F(ShellexecTest, OutputParserStopsAtMarksAndRejectsShortStarts)
{
    shellexec_var_t* list = shellexec_var_list_new();
    shellexec_var_append(list, "same", "1");
    auto parse = [&](const std::string& data) {
        return _shellexec_parse_envlist_buffer(&session, data.data(), data.size(), list);
    };
    EXPECT_EQ(parse(bytes("ab\0LI_a=1\0")), 1);
    EXPECT_EQ(parse(bytes("LI_same=1\0LI_noeq\0LI_x=a=b\0LI_=z\0LI_y=2\xffLI_z=3\0")), 0);
    EXPECT_EQ(env_get_string(&session, "x"), "a=b");
    EXPECT_TRUE(env_exists(&session, "noeq"));
    EXPECT_FALSE(env_exists(&session, "same")) << "an unchanged value is not set";
    EXPECT_FALSE(env_exists(&session, "y")) << "an entry cut by the end mark is dropped";
    EXPECT_FALSE(env_exists(&session, "z"));
    shellexec_var_list_free(list);
}

} // namespace
