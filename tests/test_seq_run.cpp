// Running wizards: steps forward and back with their numbering, the stack
// of visited dialogs, layers' sections with their properties, sections
// entered and left again, jumps into another sequence, and the action kinds.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "actions.h"
#include "env.h"
#include "log.h"
#include "seq.h"
#include "seq_dialog.h"
#include "seq_run.h"
#include "store.h"
#include "testutil.h"

namespace
{

// A module document with one behavior block around the actions.
std::string module(const std::string& actions, const std::string& extra = "")
{
    return "<module><behavior>" + actions + "</behavior>" + extra + "</module>";
}

// An action that appends text to TRACE and goes on with the given calls.
std::string traced(const std::string& id, const std::string& text, const std::string& nexts)
{
    return "<action id=\"" + id + "\"><set property=\"TRACE\" value=\"${TRACE}" + text + "\"/>" + nexts + "</action>";
}

// A package in a private folder: the root cab holds sequence.ini naming
// main.xml and every document given; layer cabs go to the config folder.
struct Wizard : ::testing::Test {
    TempDir dir;
    session_t session;
    std::vector<CabEntry> entries;
    std::string out;

    void SetUp() override
    {
        open_test_log(dir.file("wizard.log"));
        mkdir(dir.file("config").c_str(), 0755);
        mkdir(dir.file("tmp").c_str(), 0755);
        entries.push_back({"_internal_", "sequence.ini", "_internal_:main.xml:x = x\n"});
        env_set_string(&session, "CONFIG_DIR", dir.file("config"));
        env_set_string(&session, "TEMP_FOLDER", dir.file("tmp"));
        env_set_string(&session, "ENGINE_DIR", KELM_BINARY_DIR);
        env_set_string(&session, "ENGINE_BINARY", "kelm");
        env_set_string(&session, "step", "Step");
        actions_init(&session);
    }
    void TearDown() override { log_disable(); }

    void add(const std::string& name, const std::string& text) { entries.push_back({"_internal_", name, text}); }

    // A layer cab whose first entry is its document, followed by files.
    void add_layer(const std::string& id, const std::string& document, const std::vector<CabEntry>& files = {})
    {
        std::vector<CabEntry> layer = {{"_internal_", id + ".xml", document}};
        layer.insert(layer.end(), files.begin(), files.end());
        write_cab(dir.file("config/" + id + ".cab"), layer);
    }

    // Writes the root cab, loads the sequence and runs it with the answers
    // as the dialogs' input; standard output lands in out.
    int run(const std::string& answers = "")
    {
        write_cab(dir.file("install.cab"), entries);
        EXPECT_EQ(store_read_header(&session, &session.cab, dir.file("install.cab").c_str()), 0);
        EXPECT_EQ(init_sequence(&session), 0);
        write_text(dir.file("answers"), answers);
        FILE* in = fopen(dir.file("answers").c_str(), "r");
        dialog_set_input(in);
        fflush(stdout);
        int saved = dup(1);
        int fd = open(dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 1);
        close(fd);
        int rc = sequence_execute(&session);
        fflush(stdout);
        dup2(saved, 1);
        close(saved);
        dialog_set_input(nullptr);
        fclose(in);
        out = read_text(dir.file("out"));
        return rc;
    }
    std::string prop(const char* name) { return env_get_string(&session, name); }
    std::string log() { return read_text(dir.file("wizard.log")); }
    bool logged(const std::string& text) { return log().find(text) != std::string::npos; }
    bool reported(const std::string& text) { return log_reports_error(log(), text); }
};

// A step of main.xml whose document is file; attrs may name it, give it a
// condition or another action than "go".
std::string step(const std::string& id, const std::string& file, const std::string& next = "",
                 const std::string& attrs = "")
{
    std::string action = attrs.find("action=") == std::string::npos ? " action=\"go\"" : "";
    return "<module id=\"" + id + "\" file=\"" + file + "\" component=\"_internal_\"" + action + " " + attrs + ">" +
           (next.empty() ? "" : "<next call=\"" + next + "\"/>") + "</module>";
}

// A step that records where the wizard stands when it runs.
std::string where(const std::string& tag)
{
    return module(
        traced("go", tag + "${CURRENT_STEP}/${TOTAL_STEPS}:${CURRENT_STEP_TITLE};", "<next call=\"_next_\"/>"));
}

TEST_F(Wizard, StepsAreNumberedOverNamedStepsWhoseConditionHolds)
{
    add("main.xml", "<s>" + step("_start_", "init.xml", "a") + step("a", "a.xml", "b", "name=\"Alpha\"") +
                        step("b", "b.xml", "u", "name=\"Beta\" condition=\"${WITH_B} = yes\"") +
                        step("u", "u.xml", "c") + step("c", "c.xml", "", "name=\"${gamma}\"") + "</s>");
    add("init.xml", where("init"));
    // Alpha switches Beta on: the count of the next screen shows it.
    add("a.xml", module(traced("go", "a${CURRENT_STEP}/${TOTAL_STEPS}:${CURRENT_STEP_TITLE};",
                               "<set property=\"WITH_B\" value=\"yes\"/><next call=\"_next_\"/>")));
    add("b.xml", where("b"));
    add("u.xml", where("u"));
    add("c.xml", where("c"));
    env_set_string(&session, "gamma", "Gamma");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "init/:;a1/2:Alpha;b2/3:Beta;u2/3:;c3/3:Gamma;");
    EXPECT_EQ(prop("TOTAL_STEP_TITLES"), "Step 1 : Alpha\nStep 2 : Beta\nStep 3 : ${gamma}\n");
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, GoingBackSkipsUnnamedAndFalseStepsAndRunsNoLayers)
{
    add("main.xml", "<s>" + step("_start_", "init.xml", "a") + step("a", "a.xml", "h", "name=\"${alpha}\"") +
                        step("h", "a.xml", "u", "name=\"Hidden\" condition=\"NOPE\"") + step("u", "u.xml", "c") +
                        step("c", "c.xml", "", "name=\"Gamma\"") + "</s>");
    add("init.xml", where("init"));
    add("a.xml", where("a"));
    add("u.xml", where("u"));
    // The last step goes back once, then ends the wizard.
    add("c.xml", module(traced("go", "c${CURRENT_STEP}/${TOTAL_STEPS};",
                               "<set property=\"VISITS\" value=\"${VISITS}x\"/>"
                               "<next call=\"_prev_\" condition=\"${VISITS} = x\"/><next call=\"_finish_\"/>")));
    env_set_string(&session, "alpha", "Alpha");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "init/:;a1/2:Alpha;u1/2:;c2/2;a1/2:Alpha;u1/2:;c2/2;");
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, PrevAtTheFirstStepRunsItAgain)
{
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" name=\"First\" file=\"a.xml\" component=\"_internal_\">"
                    "<next call=\"z\"/></module><module action=\"go\" id=\"z\" name=\"Second\"/></s>");
    add("a.xml", module(traced("go", "a${CURRENT_STEP}:${CURRENT_STEP_TITLE};",
                               "<set property=\"N\" value=\"${N}x\"/>"
                               "<next call=\"_prev_\" condition=\"${N} = x\"/><next call=\"_next_\"/>")));
    EXPECT_EQ(run(), 0);
    // A step without a document is passed through.
    EXPECT_EQ(prop("TRACE"), "a:;a0:First;");
    EXPECT_EQ(prop("CURRENT_STEP"), "1");
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, DocumentsThatDecideNothingEndWithAnExecutionError)
{
    add("main.xml", "<s>" + step("_start_", "a.xml", "b") + step("b", "b.xml") + "</s>");
    // The only block is off: nothing is decided.
    add("a.xml", "<m><behavior condition=\"NOPE\">" + traced("go", "a", "<next call=\"_next_\"/>") + "</behavior></m>");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "");
    EXPECT_TRUE(reported("sequence_execute: Unknown transition."));
    EXPECT_TRUE(reported("sequence_execute: Execution error."));
}

TEST_F(Wizard, FinishEndsAtOnceAndSetsRunInOrder)
{
    add("main.xml",
        "<s><module id=\"_start_\" action=\"one\" file=\"a.xml\" component=\"_internal_\">"
        "<next call=\"b\"/></module><module action=\"go\" id=\"b\" file=\"b.xml\" component=\"_internal_\"/></s>");
    // An action without type runs only its set children; EXIT_CODE stays.
    add("a.xml", module("<action id=\"one\"><set property=\"A\" value=\"1\"/><set property=\"B\" value=\"${A}2\"/>"
                        "<set property=\"C\"/><set property=\"D\" value=\"no\" condition=\"NOPE\"/>"
                        "<next call=\"two\"/></action>"
                        "<action id=\"two\" type=\"built_in\" func=\"no_such_action\">"
                        "<set property=\"AFTER\" value=\"${EXIT_CODE}\"/><next call=\"_finish_\"/></action>"));
    add("b.xml", where("b"));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("B"), "12");
    EXPECT_FALSE(env_exists(&session, "C"));
    EXPECT_FALSE(env_exists(&session, "D"));
    EXPECT_EQ(prop("AFTER"), "-1");
    EXPECT_EQ(prop("TRACE"), "");
    EXPECT_FALSE(logged("Execution error"));
}

// Dialogs A, B and C of one step answered with n (on) or b (back); r makes
// A show itself again.
std::string dialog(const std::string& id)
{
    return "<dialog id=\"" + id + "\" clear_screen=\"false\"><title text=\"Dialog " + id +
           "\"/>"
           "<input text=\"" +
           id +
           "?\" keep=\"ANSWER\"><validation type=\"list\" list=\"n;b;r\" invert=\"true\"/>"
           "</input></dialog>";
}

std::string dialog_action(const std::string& id, const std::string& nexts)
{
    return "<action id=\"" + id + "\" type=\"dialog\" call=\"" + id + "\"><set property=\"TRACE\" value=\"${TRACE}" +
           id + "\"/>" + nexts + "<back/></action>";
}

TEST_F(Wizard, BackWalksTheVisitedDialogsThenThePreviousStep)
{
    add("main.xml", "<s>" + step("_start_", "one.xml", "two", "name=\"One\"") +
                        step("two", "two.xml", "", "name=\"Two\" action=\"A\"") + "</s>");
    add("one.xml", module(traced("go", "S", "<next call=\"_next_\"/>")));
    add("two.xml", module(dialog_action("A", "<next handle=\"n\" call=\"B\"/><next handle=\"r\" call=\"A\"/>") +
                              dialog_action("B", "<next handle=\"n\" call=\"C\"/>") +
                              dialog_action("C", "<next handle=\"n\" call=\"_next_\"/>"),
                          "<interface view=\"gui\"><dialog id=\"A\"/></interface><interface view=\"cli\">" +
                              dialog("A") + dialog("B") + dialog("C") + "</interface>"));
    // Back at A goes to step One; A shown again and again is stored once.
    EXPECT_EQ(run("b\nr\nr\nn\nn\nb\nb\nb\nn\nn\nn\n"), 0);
    EXPECT_EQ(prop("TRACE"), "SAS"
                             "AAAB"
                             "CBAS"
                             "ABC");
    EXPECT_NE(out.find("Dialog A"), std::string::npos);
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, DialogsNotSavedInVisitedAreSkippedGoingBack)
{
    add("main.xml", "<s><module id=\"_start_\" action=\"A\" file=\"d.xml\" component=\"_internal_\"/></s>");
    std::string b = dialog("B");
    b.replace(b.find("clear_screen"), 0, "save_in_visited=\"no\" ");
    add("d.xml",
        module(dialog_action("A", "<next handle=\"n\" call=\"B\"/>") +
                   dialog_action("B", "<next handle=\"n\" call=\"plain\"/>") +
                   "<action id=\"plain\"><next call=\"X\"/></action>" + dialog_action("X", "<next call=\"C\"/>") +
                   dialog_action("C", "<next handle=\"n\" call=\"_finish_\"/>"),
               "<interface>" + dialog("A") + b + dialog("C") + "</interface>"));
    // Back from C lands on A; an unknown dialog id still follows its next.
    EXPECT_EQ(run("n\nn\nb\nn\nn\nn\n"), 0);
    EXPECT_EQ(prop("TRACE"), "ABCABC");
    EXPECT_TRUE(reported("sequence_exec_dialog: Unknown dialog \"X\""));
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, RemoveFromVisitedForgetsTheLastDialog)
{
    add("main.xml", "<s>" + step("_start_", "one.xml", "two", "name=\"One\"") +
                        step("two", "d.xml", "", "name=\"Two\" action=\"A\"") + "</s>");
    add("one.xml", module(traced("go", "S", "<next call=\"_next_\"/>")));
    add("d.xml", module(dialog_action("A", "<next handle=\"n\" call=\"B\" remove_from_visited=\"yes\"/>") +
                            dialog_action("B", "<next handle=\"n\" call=\"_finish_\"/>"),
                        "<interface>" + dialog("A") + dialog("B") + "</interface>"));
    EXPECT_EQ(run("n\nb\nn\nn\n"), 0);
    EXPECT_EQ(prop("TRACE"), "SABSAB");
}

// A layer whose sections count the steps they run at, with properties of
// every kind of declaration.
const char* layer_document = R"(<layer>
<properties>
  <property name="LOCAL" default="dl" input="local" output="local"/>
  <property name="SHARED" default="ds" input="global" output="global"/>
  <property name="PICKED" default="dp" input="global" output="local"/>
  <property name="OUT" input="local" output="global"/>
  <property name="BROKEN" default="x" input="local"/>
</properties>
<behavior id="a" sequence="cli_inst;cli_uninst" action="la">
  <action id="la">
    <set property="LOCAL" value="${LOCAL}+"/>
    <set property="SHARED" value="${SHARED}+"/>
    <set property="OUT" value="a:${LOCAL}:${PICKED}:${KELM_INSTALL_DIR}"/>
    <set property="LTRACE" value="${LTRACE}a"/>
    <next call="_next_"/>
  </action>
</behavior>
<behavior id="b" sequence="silent_inst" action="lb">
  <action id="lb"><set property="OUT" value="silent b"/><next call="_next_"/></action>
</behavior>
<behavior sequence="cli_inst" action="lc" condition="${STEP_C} = on">
  <action id="lc"><set property="OUT" value="${OUT};any"/><next call="_next_"/></action>
</behavior>
</layer>)";

const std::string layered_main = "<s><layer file=\"one.cab\" id=\"one\"/>" + step("_start_", "a.xml", "a") +
                                 step("a", "a.xml", "b") + step("b", "a.xml", "c") + step("c", "a.xml") + "</s>";

TEST_F(Wizard, LayersRunTheirSectionWithDeclaredPropertiesInAndOut)
{
    add_layer("one", layer_document);
    add("main.xml", layered_main);
    add("a.xml", module(traced("go", "[${OUT}|${SHARED}|${LOCAL}|${LTRACE}]",
                               "<set property=\"STEP_C\" value=\"on\"/><next call=\"_next_\"/>")));
    env_set_string(&session, "SHARED", "g");
    EXPECT_EQ(run(), 0);
    // The block without an id applies at every step once its condition
    // holds; section a runs when step a is done, and only its first fitting
    // block. LOCAL, PICKED and LTRACE never leave the layer.
    EXPECT_EQ(prop("TRACE"), "[|g||][;any|g||][a:dl+:dp:|g+||][a:dl+:dp:;any|g+||]");
    EXPECT_EQ(prop("OUT"), "a:dl+:dp:;any;any");
    EXPECT_FALSE(env_exists(&session, "LOCAL"));
    EXPECT_FALSE(env_exists(&session, "PICKED"));
    EXPECT_TRUE(reported("sequence_execute: input or output is not defined for property BROKEN"));
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, ExecutedirRunsTheSectionOnceForEachDirectory)
{
    add_layer("one", layer_document);
    add("main.xml",
        "<s><layer file=\"one.cab\" id=\"one\" executedir=\"x;y\"/>"
        "<module action=\"go\" id=\"a\" file=\"a.xml\" component=\"_internal_\"/>"
        "<module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\"><next call=\"a\"/></module></s>");
    add("a.xml", module(traced("go", "[${OUT}]", "<next call=\"_next_\"/>")));
    env_set_string(&session, "KELM_INSTALL_DIR", "/opt/p/core");
    env_set_string(&session, "KELM_INSTALL_SUBDIR", "core");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("OUT"), "a:dl++:dp:/opt/p/y");
    EXPECT_EQ(prop("SHARED"), "++");
    EXPECT_TRUE(logged("sequence_execute(): changing execute dir for layer: one to /opt/p/x"));
    EXPECT_EQ(prop("KELM_INSTALL_DIR"), "/opt/p/core");
}

TEST_F(Wizard, SilentRunsPickTheSilentSections)
{
    add_layer("one", layer_document);
    add("main.xml", layered_main);
    add("a.xml", module(traced("go", "[${OUT}]", "<next call=\"_next_\"/>")));
    env_set_string(&session, "silent", dir.file("answers.cfg"));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "[][][][silent b]");
    EXPECT_EQ(prop("OUT"), "silent b");
}

TEST_F(Wizard, InEntersALayerSectionAndResumesBehindTheNextTried)
{
    add_layer("one", "<l><properties><property name=\"LT\" input=\"global\" output=\"global\"/></properties>"
                     "<behavior id=\"first\" sequence=\"cli_inst\" action=\"x\">"
                     "<action id=\"x\"><set property=\"LT\" value=\"${LT}first;\"/><next call=\"_out_\"/></action>"
                     "</behavior><behavior id=\"second\" sequence=\"cli_inst\" action=\"y\">"
                     "<action id=\"y\"><set property=\"LT\" value=\"${LT}second;\"/></action></behavior></l>");
    add("main.xml", "<s><layer file=\"one.cab\" id=\"one\"/>"
                    "<module id=\"_start_\" action=\"go\" file=\"a.xml\" component=\"_internal_\"/></s>");
    add("a.xml", module(traced("go", "go;",
                               "<next call=\"_in_\" sub=\"first\"/><next call=\"_in_\" sub=\"second\"/>"
                               "<next call=\"_finish_\"/>")));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "go;go;go;");
    EXPECT_EQ(prop("LT"), "first;second;");
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, JumpsContinueInAnotherSequenceAndBackLeadsThroughTheFirst)
{
    add("main.xml", "<s>" + step("_start_", "m.xml", "never", "name=\"Main\"") + step("never", "never.xml") + "</s>");
    add("m.xml", module(traced("go", "M;", "<next call=\"other.xml:entry\"/>")));
    add("never.xml", where("never"));
    add("other.xml", "<o>" + step("_start_", "never.xml", "entry") + step("entry", "e.xml", "last", "name=\"Entry\"") +
                         step("last", "l.xml", "", "name=\"Last\"") + "</o>");
    add("e.xml", module(traced("go", "E${CURRENT_STEP};",
                               "<set property=\"N\" value=\"${N}x\"/>"
                               "<next call=\"_prev_\" condition=\"${N} = x\"/><next call=\"_next_\"/>")));
    add("l.xml", module(traced("go", "L${CURRENT_STEP}/${TOTAL_STEPS};", "<next call=\"_next_\"/>")));
    EXPECT_EQ(run(), 0);
    // A step entered by a jump isn't counted; going back from it stays at 0.
    EXPECT_EQ(prop("TRACE"), "M;E;M;E0;L1/3;");
    EXPECT_FALSE(logged("Execution error"));
}

} // namespace
