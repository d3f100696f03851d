// Action kinds that leave a result in EXIT_CODE: library plug-ins (the
// demo's example plug-in, loaded for real) and shell functions run by bash
// and sh.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "env.h"
#include "log.h"
#include "plugin.h"
#include "seq.h"
#include "seq_action.h"
#include "store.h"
#include "testutil.h"
#include "utils.h"
#include "xml.h"

namespace
{

const std::string plugin_library = std::string(KELM_BINARY_DIR) + "/demo/demo_plugin.so";

struct ActionKinds : ::testing::Test {
    TempDir dir;
    session_t session;
    document_t doc;

    void SetUp() override
    {
        open_test_log(dir.file("actions.log"));
        ASSERT_EQ(system(("cp '" + plugin_library + "' '" + dir.file("demo_plugin.so") + "'").c_str()), 0);
        env_set_string(&session, "DEMO_COMPONENTS_DIALOG", "components");
        env_set_string(&session, "components_cb", "1;;3");
        env_set_string(&session, "component_1_name", "Core");
        env_set_string(&session, "component_3_name", "${three}");
        env_set_string(&session, "three", "Samples");
        env_set_string(&session, "TEMP_FOLDER", dir.path);
    }
    void TearDown() override
    {
        xml_free(&doc);
        log_disable();
    }

    // Parses one action element.
    node_t* action(const std::string& xml)
    {
        xml_free(&doc);
        EXPECT_EQ(xml_parse(xml.c_str(), &doc), 0);
        return doc.nodes_count > 0 ? &doc.nodes[0] : nullptr;
    }
    // A root cab with the plug-in and a shell script in it.
    void open_cab(const std::string& script)
    {
        write_cab(dir.file("root.cab"), {{"_internal_", "product.ini", "A=1\n"},
                                         {"plugins", "demo_plugin.so", "", plugin_library},
                                         {"scripts", "funcs.sh", script}});
        ASSERT_EQ(store_read_header(&session, &session.cab, dir.file("root.cab").c_str()), 0);
    }
    std::string prop(const char* name) { return env_get_string(&session, name); }
    std::string log() { return read_text(dir.file("actions.log")); }
    // The library path that the last plug-in call logged.
    std::string loaded_library()
    {
        std::string text = log();
        size_t at = text.rfind("library is \"");
        if (at == std::string::npos)
            return "";
        at += 12;
        return text.substr(at, text.find('"', at) - at);
    }
};

TEST_F(ActionKinds, PluginResultBecomesExitCodeAndItsPropertiesStay)
{
    env_set_string(&session, "ENGINE_DIR", dir.path);
    env_set_string(&session, "LIB", "demo_plugin");
    node_t* node = action(R"(<action id="x" type="plugin_c" file="${LIB}.so" func="demo_summarize_components">)"
                          R"(<set property="AFTER" value="${EXIT_CODE}:${COMPONENTS_SUMMARY}"/></action>)");
    EXPECT_EQ(sequence_exec_typed_action(&session, &session.cab, node, node), 0);
    EXPECT_EQ(prop("EXIT_CODE"), "2");
    EXPECT_EQ(prop("COMPONENTS_COUNT"), "2");
    EXPECT_EQ(prop("AFTER"), "2:Core, Samples");
    EXPECT_EQ(loaded_library(), dir.file("demo_plugin.so"));

    // The plug-in's own failure and a missing library both come back as -1.
    env_set_string(&session, "DEMO_COMPONENTS_DIALOG", "");
    EXPECT_EQ(sequence_exec_plugin_c_action(&session, &session.cab, node), 0);
    EXPECT_EQ(prop("EXIT_CODE"), "-1");
    node = action(R"(<action id="x" type="plugin_c" file="missing.so" func="f"/>)");
    env_set_string(&session, "EXIT_CODE", "0");
    EXPECT_EQ(sequence_exec_plugin_c_action(&session, &session.cab, node), 0);
    EXPECT_EQ(prop("EXIT_CODE"), "-1");
}

TEST_F(ActionKinds, PluginsFromTheCabGoThroughATemporaryFileThatIsRemoved)
{
    open_cab("");
    EXPECT_EQ(plugin_run_by_name(&session, "plugins", "demo_plugin.so", "demo_summarize_components"), 2);
    std::string first = loaded_library();
    EXPECT_EQ(first.rfind("/tmp/li_plugin_c.", 0), 0u);
    EXPECT_FALSE(exists(first.c_str()));

    shellexec_args_t call = {};
    call.component = "plugins";
    call.file = "demo_plugin.so";
    call.func = "no_such_function";
    EXPECT_EQ(plugin_run(&session, &session.cab, &call), -1);
    std::string second = loaded_library();
    EXPECT_NE(second, first);
    EXPECT_FALSE(exists(second.c_str()));
    // An entry the cab doesn't have can't be loaded; nothing is left either.
    call.file = "other.so";
    EXPECT_EQ(plugin_run(&session, &session.cab, &call), -1);
    EXPECT_FALSE(exists(loaded_library().c_str()));
}

TEST_F(ActionKinds, ALayersPluginComesFromItsFolderAndWritesItsProperties)
{
    seq_layer_t layer;
    layer.id = (char*)"lay";
    mkdir(dir.file("lay").c_str(), 0755);
    ASSERT_EQ(rename(dir.file("demo_plugin.so").c_str(), dir.file("lay/demo_plugin.so").c_str()), 0);
    char saved[PATH_MAX];
    ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
    session.scope = &layer;
    EXPECT_EQ(plugin_run_by_name(&session, "ignored", "demo_plugin.so", "demo_summarize_components"), 2);
    char now[PATH_MAX];
    EXPECT_NE(getcwd(now, sizeof now), nullptr);
    EXPECT_EQ(chdir(saved), 0);
    session.scope = nullptr;
    EXPECT_EQ(loaded_library(), dir.file("lay/demo_plugin.so"));
    EXPECT_EQ(std::string(now), dir.file("lay"));
    EXPECT_EQ(env_get_string_internal(&layer.env, "COMPONENTS_SUMMARY"), "Core, Samples");
    EXPECT_FALSE(env_exists(&session, "COMPONENTS_SUMMARY"));
}

// Shell functions: the script lies in the root cab; the engine binary does
// the --__dumpenv__ round trip.
const char* script = "say_bash() { export LI_SHELL_SAID=\"bash ${BASH_VERSION:+yes}\"; }\n"
                     "say_sh() { export LI_SHELL_SAID=\"sh:$LI_WHO\"; }\n"
                     "count() { export LI_COUNT=$((LI_COUNT + 1)); }\n";

TEST_F(ActionKinds, ShellKindsAndSetChildrenRunRealShells)
{
    open_cab(script);
    env_set_string(&session, "ENGINE_DIR", KELM_BINARY_DIR);
    env_set_string(&session, "ENGINE_BINARY", "kelm");
    env_set_string(&session, "WHO", "me");
    node_t* node = action(R"(<action id="b" type="plugin_bash" component="scripts" file="funcs.sh" func="say_bash"/>)");
    env_set_string(&session, "EXIT_CODE", "x");
    EXPECT_EQ(sequence_exec_typed_action(&session, &session.cab, node, node), 0);
    EXPECT_EQ(prop("SHELL_SAID"), "bash yes");
    EXPECT_EQ(prop("EXIT_CODE"), "0");
    node = action(R"(<action id="s" type="plugin_sh" component="scripts" file="funcs.sh" func="say_sh"/>)");
    EXPECT_EQ(sequence_exec_typed_action(&session, &session.cab, node, node), 0);
    EXPECT_EQ(prop("SHELL_SAID"), "sh:me");

    // A set child calls its function after assigning its property, and in
    // bash; a false condition skips both.
    env_set_string(&session, "COUNT", "5");
    node = action(R"(<action id="a"><set property="COUNT" value="1" component="scripts" file="funcs.sh" )"
                  R"(func="count"/><set component="scripts" file="funcs.sh" func="say_bash"/>)"
                  R"(<set property="COUNT" value="9" component="scripts" file="funcs.sh" func="count" )"
                  R"(condition="NOPE"/></action>)");
    env_set_string(&session, "SHELL_SAID", "");
    env_set_string(&session, "EXIT_CODE", "x");
    EXPECT_EQ(sequence_exec_typed_action(&session, &session.cab, node, node), 0);
    EXPECT_EQ(prop("COUNT"), "2");
    EXPECT_EQ(prop("SHELL_SAID"), "bash yes");
    EXPECT_EQ(prop("EXIT_CODE"), "0");
}

TEST_F(ActionKinds, ADebugListenerHearsWhereTheWizardStandsBeforeEachAction)
{
    env_set_string(&session, "tmp_dir", dir.path);
    env_set_string(&session, "__debug_wizard__", "");
    node_t* node = action(R"(<action id="dbg"><set property="X" value="1"/></action>)");
    env_set_string(&session, "X", "1"); // the listener hears the properties as they stand
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", dir.file("socket").c_str());
    ASSERT_EQ(bind(listener, (struct sockaddr*)&address, sizeof address), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    seq_item_t sequence = {};
    sequence.filename = (char*)"main.xml";
    step_t step = {};
    step.id = (char*)"welcome";
    sequence.current_step = &step;
    session.seqs.current = &sequence;
    seq_layer_t layer;
    layer.id = (char*)"lay";
    session.scope = &layer;
    EXPECT_EQ(sequence_exec_typed_action(&session, &session.cab, node, node), 0);
    session.scope = nullptr;
    session.seqs.current = nullptr;

    int connection = accept(listener, nullptr, nullptr);
    ASSERT_GE(connection, 0);
    std::string message;
    char buffer[4096];
    ssize_t got;
    while ((got = read(connection, buffer, sizeof buffer)) > 0)
        message.append(buffer, got);
    close(connection);
    close(listener);
    EXPECT_EQ(message.rfind("sequence:main.xml\nstep:lay\nanchor:welcome\naction:dbg\n\n", 0), 0u);
    EXPECT_NE(message.find("\nX#1\n"), std::string::npos);
}

} // namespace
