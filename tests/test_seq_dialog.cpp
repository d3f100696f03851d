// Dialogs answered through a scripted input: what is drawn, which answers
// pass, how numbers map to ids, how lines toggle, and what is left in the
// properties.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "env.h"
#include "log.h"
#include "seq_dialog.h"
#include "testutil.h"
#include "xml.h"

namespace
{

int eof_calls = 0;
void count_eof()
{
    eof_calls++;
}

size_t count(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        n++;
    return n;
}

struct DialogTest : ::testing::Test {
    TempDir dir;
    session_t session;
    document_t doc;
    std::string out; // what the dialog wrote to standard output
    std::string err; // and to standard error

    void SetUp() override
    {
        open_test_log(dir.file("dialog.log"));
        env_set_string(&session, "CURRENT_DIALOG", "d");
        eof_calls = 0;
        dialog_set_eof_handler(count_eof);
    }
    void TearDown() override
    {
        dialog_set_input(nullptr);
        dialog_set_eof_handler(nullptr);
        xml_free(&doc);
        log_disable();
    }

    // Shows the first element of xml with the answers as input.
    int show(const std::string& xml, const std::string& answers)
    {
        xml_free(&doc);
        EXPECT_EQ(xml_parse(xml.c_str(), &doc), 0);
        if (doc.nodes_count < 1)
            return -99;
        write_text(dir.file("answers"), answers);
        FILE* in = fopen(dir.file("answers").c_str(), "r");
        dialog_set_input(in);
        fflush(stdout);
        fflush(stderr);
        int saved_out = dup(1), saved_err = dup(2);
        int fd_out = open(dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int fd_err = open(dir.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd_out, 1);
        dup2(fd_err, 2);
        close(fd_out);
        close(fd_err);
        int rc = show_dialog(&session, &doc.nodes[0]);
        fflush(stdout);
        fflush(stderr);
        dup2(saved_out, 1);
        dup2(saved_err, 2);
        close(saved_out);
        close(saved_err);
        dialog_set_input(nullptr);
        fclose(in);
        out = read_text(dir.file("out"));
        err = read_text(dir.file("err"));
        return rc;
    }
    std::string prop(const char* name) { return env_get_string(&session, name); }
    std::string log() { return read_text(dir.file("dialog.log")); }
};

const std::string dashes(80, '-');

TEST_F(DialogTest, DialogWithoutInputOnlyShowsItself)
{
    env_set_string(&session, "HANDLE", "before");
    env_set_string(&session, "WHO", "Ann");
    const char* xml = R"(<dialog id="d"><title text="Hello ${WHO}"/>)"
                      R"(<description text="one&#xa;two"/><question id="1" text="Plain question"/></dialog>)";
    EXPECT_EQ(show(xml, "ignored\n"), 0);
    EXPECT_EQ(out, "Hello Ann\n" + dashes + "\none\ntwo\n" + dashes + "\nPlain question" + dashes + "\n");
    EXPECT_EQ(prop("HANDLE"), "before");
    // The screen is cleared unless the dialog says otherwise.
    EXPECT_EQ(err, "\033[2J\033[1;1H");
    EXPECT_EQ(show(R"(<dialog clear_screen="false"><title text="t"/></dialog>)", ""), 0);
    EXPECT_EQ(err, "");
}

TEST_F(DialogTest, QuestionsAreSortedByIdInDocumentOrderOnTies)
{
    const char* xml = R"(<dialog clear_screen="false"><question id="2" text="B&#10;"/>)"
                      R"(<question id="1" text="A"/><question id="2" text="C"/><question text="Z"/></dialog>)";
    EXPECT_EQ(show(xml, ""), 0);
    EXPECT_EQ(out, "Z\nA\nB&#10;\nC" + dashes + "\n");
}

// Lines with ids 1, 2, 3 of which 2 is hidden.
const char* hidden_dialog = R"(<dialog clear_screen="false"><question id="1" type="list"><list type="num">)"
                            R"(<line id="1" text="one"/><line id="2" text="two" condition="NOPE"/>)"
                            R"(<line id="3" text="three"/></list></question>)"
                            R"(<input text="Pick" keep="PICKED"><validation type="list" list="1;2;3" )"
                            R"(invert="true" err="Pick ${WHAT}"/></input></dialog>)";

TEST_F(DialogTest, HiddenLinesShiftNumbersThatMapBackToIds)
{
    env_set_string(&session, "WHAT", "a shown number");
    EXPECT_EQ(show(hidden_dialog, "3\n2\n"), 0);
    EXPECT_NE(out.find("1. one\n2. three\n" + dashes), std::string::npos);
    EXPECT_EQ(count(out, "Pick a shown number\n"), 1u);
    EXPECT_EQ(prop("HANDLE"), "3");
    EXPECT_EQ(prop("PICKED"), "3");

    // Shown, the same line answers with its number: no mapping at all.
    env_set_string(&session, "NOPE", "1");
    EXPECT_EQ(show(hidden_dialog, "3\n"), 0);
    EXPECT_EQ(prop("HANDLE"), "3");
    EXPECT_NE(out.find("1. one\n2. two\n3. three\n"), std::string::npos);
}

TEST_F(DialogTest, LineDefaultBecomesThePromptsDefault)
{
    const char* xml = R"(<dialog clear_screen="false"><question id="1" type="list"><list type="num">)"
                      R"(<line id="7" text="a"/><line id="8" text="b" default="false"/></list></question>)"
                      R"(<input text="Pick" keep="K" default="9"><validation type="list" list="1;2" )"
                      R"(invert="true"/></input></dialog>)";
    EXPECT_EQ(show(xml, "\n"), 0);
    EXPECT_NE(out.find("Pick [2]: "), std::string::npos);
    EXPECT_EQ(prop("HANDLE"), "2");

    // A hidden line's default leaves the prompt without any default.
    env_set_string(&session, "X", "1");
    const char* hidden = R"(<dialog clear_screen="false"><question id="1" type="list"><list type="num">)"
                         R"(<line id="7" text="a"/><line id="8" text="b" default="yes" condition="NOPE"/>)"
                         R"(</list></question><input text="Pick" keep="K" default="9"/></dialog>)";
    EXPECT_EQ(show(hidden, "1\n"), 0);
    EXPECT_NE(out.find("Pick: "), std::string::npos);
    EXPECT_EQ(prop("HANDLE"), "7");
}

TEST_F(DialogTest, ValidationRulesRepeatThePromptUntilAnAnswerPasses)
{
    const char* enter = R"(<dialog clear_screen="false"><input text="Go" keep="K">)"
                        R"(<validation type="list" list="ENTER;q" invert="true" err="no"/></input></dialog>)";
    env_set_string(&session, "HANDLE", "old");
    EXPECT_EQ(show(enter, "x\n\n"), 0);
    EXPECT_EQ(prop("HANDLE"), "");
    EXPECT_EQ(count(out, "no\n"), 1u);

    const char* forbid = R"(<dialog clear_screen="false"><input text="Name" keep="K">)"
                         R"(<validation type="list" list="${BAD}" err="taken"/></input></dialog>)";
    env_set_string(&session, "BAD", "root;admin");
    EXPECT_EQ(show(forbid, "admin\nroot\nann\n"), 0);
    EXPECT_EQ(count(out, "taken\n"), 2u);
    EXPECT_EQ(prop("K"), "ann");

    // A pattern must match; a path must be an existing directory.
    const char* xml = R"(<dialog clear_screen="false"><input text="Port" keep="PORT">)"
                      R"(<validation type="list" list="default" invert="true"/>)"
                      R"(<validation type="pattern" pattern="^[0-9]+$" err="Digits only"/></input></dialog>)";
    EXPECT_EQ(show(xml, "80a\n8080\n"), 0);
    EXPECT_EQ(count(out, "Digits only\n"), 1u);
    EXPECT_EQ(prop("PORT"), "8080");

    write_text(dir.file("plain"), "x");
    const std::string path = R"(<dialog clear_screen="false"><input text="Where" keep="DIR">)"
                             R"(<validation type="path" check="dir;empty" invert="true" err="Not a directory"/>)"
                             R"(</input></dialog>)";
    EXPECT_EQ(show(path, dir.file("missing") + "\n" + dir.file("plain") + "\n\n"), 0);
    EXPECT_EQ(count(out, "Not a directory\n"), 2u);
    EXPECT_EQ(prop("DIR"), "");
    EXPECT_EQ(show(path, dir.path + "\n"), 0);
    EXPECT_EQ(prop("DIR"), dir.path);
}

const char* checkbox_dialog = R"(<dialog id="d" clear_screen="false"><title text="Components"/>)"
                              R"(<input text="Toggle, or n" keep="K">)"
                              R"(<validation type="list" list="n" invert="true" err="wrong"/></input>)"
                              R"(<question id="1" type="checkbox"><list type="num">)"
                              R"(<line id="10" text="Core" default="yes"/><line id="20" text="Docs"/>)"
                              R"(<line id="30" text="Demo"/></list></question></dialog>)";

TEST_F(DialogTest, NumbersToggleCheckboxesAndRedraw)
{
    EXPECT_EQ(show(checkbox_dialog, "2\n1\nx\nn\n"), 0);
    EXPECT_EQ(count(out, "Components\n"), 3u);
    EXPECT_NE(out.find("1. [x] Core\n2. [ ] Docs\n3. [ ] Demo\n"), std::string::npos);
    EXPECT_NE(out.find("1. [x] Core\n2. [x] Docs\n3. [ ] Demo\n"), std::string::npos);
    EXPECT_NE(out.find("1. [ ] Core\n2. [x] Docs\n3. [ ] Demo\n"), std::string::npos);
    EXPECT_EQ(count(out, "wrong\n"), 1u);
    EXPECT_EQ(prop("d_cb"), ";2");
    EXPECT_EQ(prop("d_showed"), "yes");
    EXPECT_EQ(prop("HANDLE"), "n");

    // Shown again later, the selection stays and the defaults are off.
    env_set_string(&session, "d_cb_list", "");
    EXPECT_EQ(show(checkbox_dialog, "n\n"), 0);
    EXPECT_NE(out.find("1. [ ] Core\n2. [x] Docs\n"), std::string::npos);
}

TEST_F(DialogTest, NumbersSelectRadioLines)
{
    const char* xml = R"(<dialog id="d" clear_screen="false"><question id="1" type="radiobutton">)"
                      R"(<list type="custom"><line id="1" text="Accept"/><line id="2" text="Decline" default="y"/>)"
                      R"(</list></question><input text="Choose, or n" keep="K">)"
                      R"(<validation type="list" list="n" invert="true"/></input></dialog>)";
    EXPECT_EQ(show(xml, "1\nn\n"), 0);
    EXPECT_NE(out.find("1. ( ) Accept\n2. (*) Decline\n"), std::string::npos);
    EXPECT_NE(out.find("1. (*) Accept\n2. ( ) Decline\n"), std::string::npos);
    EXPECT_EQ(prop("d_rb"), "1");
    EXPECT_EQ(prop("HANDLE"), "n");
    // Radio dialogs leave no _showed mark.
    EXPECT_FALSE(env_exists(&session, "d_showed"));
}

TEST_F(DialogTest, ListingModePrintsThePromptWithoutAsking)
{
    env_set_string(&session, "print_dialogs_list", "");
    EXPECT_EQ(show(hidden_dialog, ""), 0);
    EXPECT_EQ(out.substr(out.size() - 7), "Pick: \n");
    EXPECT_FALSE(env_exists(&session, "HANDLE"));
    EXPECT_EQ(eof_calls, 0);
}

TEST_F(DialogTest, EndOfInputStopsAsking)
{
    EXPECT_EQ(show(hidden_dialog, ""), -1);
    EXPECT_EQ(eof_calls, 1);
    EXPECT_EQ(show(hidden_dialog, "9\n"), -1);
    EXPECT_EQ(eof_calls, 2);
    EXPECT_FALSE(env_exists(&session, "HANDLE"));
    // A last line without a newline is still an answer.
    EXPECT_EQ(show(hidden_dialog, "1"), 0);
    EXPECT_EQ(prop("HANDLE"), "1");
    EXPECT_EQ(eof_calls, 2);
}

TEST_F(DialogTest, AnswersLoseCarriageReturns)
{
    const char* xml = R"(<dialog clear_screen="false"><input text="?" keep="K"/></dialog>)";
    EXPECT_EQ(show(xml, "yes\r\n"), 0);
    EXPECT_EQ(prop("K"), "yes");
}

} // namespace
