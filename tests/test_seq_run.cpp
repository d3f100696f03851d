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

struct Entry {
    std::string component;
    std::string name;
    std::string data;
};

void write_cab(const std::string& path, const std::vector<Entry>& entries)
{
    std::vector<cab_entry_src_t> sources(entries.size());
    for (size_t i = 0; i < entries.size(); i++) {
        sources[i] = {};
        sources[i].component = entries[i].component.c_str();
        sources[i].name = entries[i].name.c_str();
        sources[i].data = entries[i].data.c_str();
        sources[i].data_size = (int64_t)entries[i].data.size();
    }
    char message[256] = "";
    ASSERT_EQ(store_write_cab_file(path.c_str(), sources.data(), (int)sources.size(), false, message, sizeof message),
              0)
        << message;
}

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
    std::vector<Entry> entries;
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
    void add_layer(const std::string& id, const std::string& document, const std::vector<Entry>& files = {})
    {
        std::vector<Entry> layer = {{"_internal_", id + ".xml", document}};
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
    // True when a line of the log reports the text as an error.
    bool reported(const std::string& text)
    {
        std::string all = log();
        for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
            size_t start = all.rfind('\n', at);
            start = start == std::string::npos ? 0 : start;
            if (all.substr(start, at - start).find(" - ERROR: ") != std::string::npos)
                return true;
        }
        return false;
    }
};

// A step that records where the wizard stands when it runs.
std::string where(const std::string& tag)
{
    return module(
        traced("go", tag + "${CURRENT_STEP}/${TOTAL_STEPS}:${CURRENT_STEP_TITLE};", "<next call=\"_next_\"/>"));
}

TEST_F(Wizard, StepsAreNumberedOverNamedStepsWhoseConditionHolds)
{
    add("main.xml",
        "<s><module action=\"go\" id=\"_start_\" file=\"init.xml\" component=\"_internal_\"><next call=\"a\"/></module>"
        "<module action=\"go\" id=\"a\" name=\"Alpha\" file=\"a.xml\" component=\"_internal_\"><next "
        "call=\"b\"/></module>"
        "<module action=\"go\" id=\"b\" name=\"Beta\" condition=\"${WITH_B} = yes\" file=\"b.xml\" "
        "component=\"_internal_\">"
        "<next call=\"u\"/></module>"
        "<module action=\"go\" id=\"u\" file=\"u.xml\" component=\"_internal_\"><next call=\"c\"/></module>"
        "<module action=\"go\" id=\"c\" name=\"${gamma}\" file=\"c.xml\" component=\"_internal_\"/></s>");
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
    EXPECT_TRUE(logged("sequence_execute: finished"));
}

TEST_F(Wizard, GoingBackSkipsUnnamedAndFalseStepsAndRunsNoLayers)
{
    add("main.xml",
        "<s><module action=\"go\" id=\"_start_\" file=\"init.xml\" component=\"_internal_\"><next call=\"a\"/></module>"
        "<module action=\"go\" id=\"a\" name=\"${alpha}\" file=\"a.xml\" component=\"_internal_\"><next "
        "call=\"h\"/></module>"
        "<module action=\"go\" id=\"h\" name=\"Hidden\" condition=\"NOPE\" file=\"a.xml\" component=\"_internal_\">"
        "<next call=\"u\"/></module>"
        "<module action=\"go\" id=\"u\" file=\"u.xml\" component=\"_internal_\"><next call=\"c\"/></module>"
        "<module action=\"go\" id=\"c\" name=\"Gamma\" file=\"c.xml\" component=\"_internal_\"/></s>");
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
    add("main.xml",
        "<s><module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\"><next call=\"b\"/></module>"
        "<module action=\"go\" id=\"b\" file=\"b.xml\" component=\"_internal_\"/></s>");
    // The only block is off: nothing is decided.
    add("a.xml", "<m><behavior condition=\"NOPE\">" + traced("go", "a", "<next call=\"_next_\"/>") + "</behavior></m>");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "");
    EXPECT_TRUE(reported("sequence_execute: Unknown transition."));
    EXPECT_TRUE(reported("sequence_execute: Execution error."));
}

TEST_F(Wizard, AnUnknownActionTypeStopsTheDocument)
{
    add("main.xml",
        "<s><module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\"><next call=\"b\"/></module>"
        "<module action=\"go\" id=\"b\" file=\"b.xml\" component=\"_internal_\"/></s>");
    add("a.xml", module("<action id=\"go\" type=\"weird\"><next call=\"_next_\"/></action>"));
    add("b.xml", where("b"));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "");
    EXPECT_TRUE(reported("sequence_execute_document: Unknown type of the action - weird"));
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
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" name=\"One\" file=\"one.xml\" component=\"_internal_\">"
                    "<next call=\"two\"/></module>"
                    "<module id=\"two\" name=\"Two\" action=\"A\" file=\"two.xml\" component=\"_internal_\"/></s>");
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
    EXPECT_EQ(prop("CURRENT_DIALOG"), "C");
    EXPECT_EQ(prop("SAVE_IN_VISITED"), "yes");
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
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" name=\"One\" file=\"one.xml\" component=\"_internal_\">"
                    "<next call=\"two\"/></module>"
                    "<module id=\"two\" name=\"Two\" action=\"A\" file=\"d.xml\" component=\"_internal_\"/></s>");
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

const char* layered_main =
    "<s><layer file=\"one.cab\" id=\"one\"/>"
    "<module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\"><next call=\"a\"/></module>"
    "<module action=\"go\" id=\"a\" file=\"a.xml\" component=\"_internal_\"><next call=\"b\"/></module>"
    "<module action=\"go\" id=\"b\" file=\"a.xml\" component=\"_internal_\"><next call=\"c\"/></module>"
    "<module action=\"go\" id=\"c\" file=\"a.xml\" component=\"_internal_\"/></s>";

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
    EXPECT_TRUE(logged("sequence_execute(): changing execute dir for layer: one to /opt/p/y"));
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
    EXPECT_TRUE(logged("moving into submodule second from action go. Result is 517"));
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, InIsRefusedInALayer)
{
    add_layer("one", "<l><behavior id=\"_start_\" sequence=\"cli_inst\" action=\"_in_\">"
                     "<action id=\"x\"/></behavior></l>");
    add("main.xml", "<s><layer file=\"one.cab\" id=\"one\"/>"
                    "<module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\"/></s>");
    add("a.xml", where("a"));
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(reported("sequence_execute_document: \"_in_\" can't be used in a layer's document"));
    EXPECT_TRUE(reported("sequence_execute: Execution error."));
}

TEST_F(Wizard, JumpsContinueInAnotherSequenceAndBackLeadsThroughTheFirst)
{
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" name=\"Main\" file=\"m.xml\" component=\"_internal_\">"
                    "<next call=\"never\"/></module><module action=\"go\" id=\"never\" file=\"never.xml\" "
                    "component=\"_internal_\"/></s>");
    add("m.xml", module(traced("go", "M;", "<next call=\"other.xml:entry\"/>")));
    add("never.xml", where("never"));
    add("other.xml",
        "<o><module action=\"go\" id=\"_start_\" file=\"never.xml\" component=\"_internal_\"><next call=\"entry\"/>"
        "</module><module action=\"go\" id=\"entry\" name=\"Entry\" file=\"e.xml\" component=\"_internal_\">"
        "<next call=\"last\"/></module><module action=\"go\" id=\"last\" name=\"Last\" file=\"l.xml\" "
        "component=\"_internal_\"/></o>");
    add("e.xml", module(traced("go", "E${CURRENT_STEP};",
                               "<set property=\"N\" value=\"${N}x\"/>"
                               "<next call=\"_prev_\" condition=\"${N} = x\"/><next call=\"_next_\"/>")));
    add("l.xml", module(traced("go", "L${CURRENT_STEP}/${TOTAL_STEPS};", "<next call=\"_next_\"/>")));
    EXPECT_EQ(run(), 0);
    // A step entered by a jump isn't counted; going back from it stays at 0.
    EXPECT_EQ(prop("TRACE"), "M;E;M;E0;L1/3;");
    EXPECT_TRUE(logged("sequence_execute: loading steps of other.xml"));
    EXPECT_TRUE(logged("get_sequence_by_filename: sequence other.xml found in cache"));
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, JumpsThroughThreeSequences)
{
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" file=\"m.xml\" component=\"_internal_\"/></s>");
    add("m.xml", module(traced("go", "M;", "<next call=\"two.xml:a\"/>")));
    add("two.xml", "<t><module action=\"go\" id=\"_start_\" file=\"a.xml\" component=\"_internal_\">"
                   "<next call=\"a\"/></module><module action=\"go\" id=\"a\" file=\"a.xml\" "
                   "component=\"_internal_\"/></t>");
    add("a.xml", module(traced("go", "A;", "<next call=\"three.xml:b\"/>")));
    add("three.xml", "<t><module action=\"go\" id=\"_start_\" file=\"b.xml\" component=\"_internal_\">"
                     "<next call=\"b\"/></module><module action=\"go\" id=\"b\" name=\"B\" file=\"b.xml\" "
                     "component=\"_internal_\"><next call=\"c\"/></module>"
                     "<module action=\"go\" id=\"c\" name=\"C\" file=\"c.xml\" component=\"_internal_\"/></t>");
    add("b.xml", module(traced("go", "B;", "<next call=\"_next_\"/>")));
    add("c.xml", where("c"));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "M;A;B;c1/2:C;");
    EXPECT_EQ(session.seqs.count, 0); // released at the end
    EXPECT_TRUE(logged("sequence_execute: loading steps of three.xml"));
    EXPECT_FALSE(logged("Execution error"));
}

TEST_F(Wizard, AJumpToAMissingSequenceDecidesNothing)
{
    add("main.xml",
        "<s><module action=\"go\" id=\"_start_\" file=\"m.xml\" component=\"_internal_\"><next call=\"b\"/></module>"
        "<module action=\"go\" id=\"b\" file=\"b.xml\" component=\"_internal_\"/></s>");
    add("m.xml", module(traced("go", "M;", "<next call=\"missing.xml:x\"/>")));
    add("b.xml", where("b"));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(prop("TRACE"), "M;");
    EXPECT_TRUE(reported("sequence_execute: can't extract _internal_::missing.xml"));
    EXPECT_TRUE(reported("sequence_execute: Unknown transition."));
}

TEST_F(Wizard, AJumpOfThreePartsIsAnExecutionError)
{
    add("main.xml", "<s><module action=\"go\" id=\"_start_\" file=\"m.xml\" component=\"_internal_\"/></s>");
    add("m.xml", module(traced("go", "M;", "<next call=\"a:b:c\"/>")));
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(reported("sequence_execute_document: bad syntax of transition to another sequence"));
    EXPECT_TRUE(reported("sequence_execute: Execution error."));
}

TEST_F(Wizard, WithoutASequenceNothingRuns)
{
    EXPECT_EQ(sequence_execute(&session), -1);
    EXPECT_TRUE(reported("sequence_execute: sequence is NULL"));
    int transition = 0;
    char* sub = nullptr;
    EXPECT_EQ(sequence_execute_document(&session, &session.cab, nullptr, nullptr, nullptr, &transition, &sub, nullptr),
              0);
    EXPECT_EQ(transition, SEQ_TRANSITION_NEXT);
    EXPECT_EQ(sequence_execute_document(&session, &session.cab, nullptr, nullptr, nullptr, nullptr, &sub, nullptr), -1);
}

TEST(SeqStack, PushAndPopKeepTheirOwnCopies)
{
    stack* top = nullptr;
    std::string id = "first";
    EXPECT_EQ(push(&top, id.c_str()), 1);
    id = "changed";
    EXPECT_EQ(push(&top, "second"), 1);
    EXPECT_STREQ(top->id, "second");
    pop(&top);
    EXPECT_STREQ(top->id, "first");
    pop(&top);
    EXPECT_EQ(top, nullptr);
    pop(&top);
    EXPECT_EQ(top, nullptr);
}

} // namespace
