// Elevation: the terminal mechanics against a stand-in for su that asks for
// a password on its terminal and records what arrives, and the sudo path
// through the real sudo.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "actions.h"
#include "env.h"
#include "log.h"
#include "store.h"
#include "sushell.h"
#include "testutil.h"
#include "utils.h"

namespace
{

// The stand-in is called as su would be: "-", login, "-c", command. Each
// instance records its login and the password it read under its number,
// then runs the command with FAKE_INSTANCE set to that number.
const char* const FAKE_SU = R"(#!/bin/bash
dir=$(dirname "$0")
n=$(ls "$dir" | grep -c '^started\.')
touch "$dir/started.$n"
stty -echo
printf '%s' "${FAKE_PROMPT:-Password:}"
IFS= read -r pw
stty echo
printf '%s' "$pw" > "$dir/pw.$n"
printf '%s' "$2" > "$dir/login.$n"
export FAKE_INSTANCE=$n
exec bash -c "$4"
)";

struct SushellTest : ::testing::Test {
    TempDir dir;
    session_t session;
    std::string fake;

    void SetUp() override
    {
        open_test_log(dir.file("test.log"));
        fake = dir.file("fakesu/su");
        mkdir(dir.file("fakesu").c_str(), 0755);
        write_text(fake, FAKE_SU);
        chmod(fake.c_str(), 0755);
        sushell_set_su_program(fake.c_str());
        mkdir(dir.file("temp").c_str(), 0755);
        env_set_string(&session, "tmp_dir", dir.path);
        env_set_string(&session, "TEMP_FOLDER", dir.file("temp"));
        env_set_string(&session, "SU_LOGIN", "installer");
        env_set_string(&session, "__HIDE__SU_PASSWORD", "pa$$ \"word\"");
        env_set_string(&session, "KELM_EXIT_CODE", "old");
    }
    void TearDown() override
    {
        sushell_set_su_program(nullptr);
        unsetenv("FAKE_PROMPT");
        log_disable();
    }
    std::string got(const std::string& name) { return read_text(dir.file("fakesu/" + name)); }
    int instances() { return atoi(run_command("ls " + dir.file("fakesu") + " | grep -c '^started\\.'").c_str()); }
    int execute(const std::string& command)
    {
        env_set_string(&session, "SU_COMMAND", command);
        return shell_execute_command(&session);
    }
};

TEST_F(SushellTest, SuGetsLoginPasswordAndCommandOnItsTerminal)
{
    EXPECT_EQ(su_execute_command(&session, "someone", "pa$$ \"word\"", "exit 3"), 3);
    EXPECT_EQ(got("pw.0"), "pa$$ \"word\"");
    EXPECT_EQ(got("login.0"), "someone");

    // Another prompt text costs nothing.
    setenv("FAKE_PROMPT", "Passwort: ", 1);
    EXPECT_EQ(su_execute_command(&session, "someone", "second", "exit 0"), 0);
    EXPECT_EQ(got("pw.1"), "second");
}

TEST_F(SushellTest, StatusRule)
{
    EXPECT_EQ(execute("exit 0"), 0);
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_SUCCESS");
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE"), "0");

    env_set_string(&session, "KELM_EXIT_CODE", "old");
    EXPECT_EQ(execute("exit 1"), 1);
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_FAILURE");
    EXPECT_EQ(env_get_string(&session, "WINDOW_VISIBILITY"), "VISIBLE");
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE"), "old");

    // A child that removed the temporary folder has run to its end.
    env_set_string(&session, "WINDOW_VISIBILITY", "");
    EXPECT_EQ(execute("rm -rf " + dir.file("temp") + "; exit 1"), 0);
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_SUCCESS");
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE"), "old");
    EXPECT_EQ(got("pw.2"), "pa$$ \"word\"");
    EXPECT_EQ(read_text(dir.file("test.log")).find("pa$$"), std::string::npos);
}

TEST_F(SushellTest, MissingPropertiesFailAuthentication)
{
    EXPECT_EQ(shell_execute_command(&session), 1);
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_FAILURE");
    env_remove(&session, "TEMP_FOLDER");
    env_set_string(&session, "AUTH_STATUS", "");
    EXPECT_EQ(execute("exit 0"), 1);
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_FAILURE");
    EXPECT_EQ(instances(), 0);
}

TEST_F(SushellTest, RootMarkerLiftsTheDeadline)
{
    std::string marker = dir.file(SUSHELL_ROOT_MARKER);
    std::string command = "touch " + marker + "; sleep 2.5; exit 3";
    EXPECT_EQ(su_execute_command(&session, "root", "pw", command.c_str()), 3);
    EXPECT_EQ(instances(), 1);
}

TEST_F(SushellTest, WithoutMarkerASecondSuGetsThePasswordToo)
{
    // The first instance outlives the deadline and is abandoned; the second
    // answers at once.
    EXPECT_EQ(su_execute_command(&session, "root", "pw", "[ $FAKE_INSTANCE = 0 ] && sleep 4 && exit 9; exit 4"), 4);
    EXPECT_EQ(instances(), 2);
    EXPECT_EQ(got("pw.0"), "pw");
    EXPECT_EQ(got("pw.1"), "pw");
}

TEST_F(SushellTest, ForkptyCutsThePasswordAndRelaysBothWays)
{
    int saved_input = dup(0);
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    ASSERT_EQ(write(input[1], "typed-in\n", 9), 9);
    close(input[1]);
    dup2(input[0], 0);
    close(input[0]);

    std::string password(70, 'p');
    password[61] = 'L';
    testing::internal::CaptureStdout();
    std::string command =
        "echo relayed-out; IFS= read -r line; printf %s \"$line\" > " + dir.file("typed") + "; exit 6";
    int status = su_execute_command_forkpty("someone", password.c_str(), command.c_str());
    std::string shown = testing::internal::GetCapturedStdout();
    dup2(saved_input, 0);
    close(saved_input);

    EXPECT_EQ(status, 6);
    EXPECT_EQ(got("pw.0"), password.substr(0, 62));
    EXPECT_EQ(read_text(dir.file("typed")), "typed-in");
    EXPECT_NE(shown.find("relayed-out"), std::string::npos);
    EXPECT_EQ(shown.find(password.substr(0, 62)), std::string::npos) << "the password is not echoed";
}

TEST_F(SushellTest, ForkptyGivesUpOnASilentProgram)
{
    std::string silent = dir.file("silent");
    write_text(silent, "#!/bin/sh\nexec sleep 30\n");
    chmod(silent.c_str(), 0755);
    sushell_set_su_program(silent.c_str());
    EXPECT_EQ(su_execute_command_forkpty("someone", "pw", "true"), 1);
    EXPECT_NE(read_text(dir.file("test.log")).find("can't read su comamnd prompt."), std::string::npos);
}

// The real sudo, which asks root for no password: the command itself reads
// what the password file feeds into the pipe.
TEST_F(SushellTest, SudoPipesThePasswordFileAndRemovesIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "sudo without a password needs root";
    std::string before = run_command("ls /tmp | grep '^tempfile\\.' | sort");
    std::string out = dir.file("sudo-got");
    std::string command = "sh -c 'IFS= read -r p; printf %s \"$p\" > " + out + "; exit 3'";
    // The file lives 25 ms; a cat slower than that reads nothing.
    std::string arrived;
    for (int attempt = 0; attempt < 3 && arrived != "pw 1"; attempt++) {
        EXPECT_EQ(sudo_execute_command("pw 1", command.c_str()), 3);
        arrived = read_text(out);
    }
    EXPECT_EQ(arrived, "pw 1");
    EXPECT_EQ(run_command("ls /tmp | grep '^tempfile\\.' | sort"), before);

    env_set_string(&session, "SU_LOGIN", "");
    EXPECT_EQ(execute("sh -c 'exit 2' sh"), 2); // a closing quote would be stripped
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE"), "2");
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_SUCCESS");
}

// The whole elevated road as far as the engine goes today: the parent saves
// its properties, the engine starts again as the elevated child of sudo,
// removes the temporary folder at its end but leaves the parent's
// environment file, and its exit status comes back.
TEST_F(SushellTest, ElevatedEngineRunsAndItsStatusComesBack)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "sudo without a password needs root";
    ASSERT_EQ(symlink(KELM_BINARY_DIR "/kelm", dir.file("kelm").c_str()), 0);
    // The least package the engine starts with: a cab beside it with product.ini.
    write_cab(dir.file("kelm.cab"),
              {{STORE_INTERNAL, "placeholder", ""}, {STORE_INTERNAL, "product.ini", "PRODUCT_NAME=elevation test\n"}});

    env_set_string(&session, "ENGINE_DIR", dir.path);
    env_set_string(&session, "SU_LOGIN", "");
    env_set_string(&session, "carried", "across");
    ASSERT_EQ(actions_init(&session), 0);
    ASSERT_EQ(actions_execute(&session, "env_save"), 0);
    env_set_string(&session, "SU_COMMAND",
                   "${ENGINE_DIR}/kelm --RUN_MODE elevated --TEMP_FOLDER ${TEMP_FOLDER} --KELM_EXIT_CODE 3");
    EXPECT_EQ(actions_execute(&session, "shell_execute_command"), 3);
    EXPECT_EQ(env_get_string(&session, "KELM_EXIT_CODE"), "3");
    EXPECT_EQ(env_get_string(&session, "AUTH_STATUS"), "AUTH_SUCCESS");
    EXPECT_FALSE(is_dir(dir.file("temp").c_str()));
    EXPECT_NE(read_text(dir.file(ENV_FILE_NAME)).find("carried#across\n"), std::string::npos);
    EXPECT_NE(run_command("cat " + dir.path + "/orvan.kelm.root.*.log").find("main: remove temporary folder"),
              std::string::npos);
}

} // namespace
