// The kinds of actions: plain, dialog, built-in, library and shell plug-ins.
#include "seq_action.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "actions.h"
#include "cond.h"
#include "env.h"
#include "log.h"
#include "plugin.h"
#include "seq_debug.h"
#include "seq_dialog.h"
#include "shellexec.h"
#include "xml.h"

static const char* nz(const char* text)
{
    return text ? text : "(null)";
}

static bool is_named(const node_t* node, const char* name)
{
    return node->name && !strcmp(node->name, name);
}

static void set_exit_code(session_t* session, int code)
{
    env_set_string(session, "EXIT_CODE", std::to_string(code));
}

int sequence_exec_action(session_t* session, node_t* action)
{
    if (!session || !action) {
        LOG_NULL_PARAM();
        return 0;
    }
    for (int i = 0; i < action->childs_count; i++) {
        node_t* set = &action->childs[i];
        if (!is_named(set, "set"))
            continue;
        char* condition = xml_node_get_key(set, "condition");
        if (condition && cond_is_true(condition, session) != 1)
            continue;
        char* property = xml_node_get_key(set, "property");
        char* value = xml_node_get_key(set, "value");
        if (property && value) {
            std::string expanded = expand_string(session, value);
            print_log("sequence_exec_action: set the var \"%s\" with value \"%s\"", property,
                      env_is_hidden_name(property) ? "[HIDDEN]" : expanded.c_str());
            env_set_string(session, property, expanded);
        }
        shellexec_args_t call = {};
        call.component = xml_node_get_key(set, "component");
        call.file = xml_node_get_key(set, "file");
        call.func = xml_node_get_key(set, "func");
        call.vars = xml_node_get_key(set, "vars");
        call.posix = 0;
        if (call.component && call.file && call.func) {
            int result = shellexec_execute(session, &session->cab, &call);
            print_log("sequence_exec_action: exit code \"%d\"", result);
            set_exit_code(session, result);
        }
    }
    return 0;
}

// The dialog element with the id among the interface elements for the
// console, or null.
static node_t* find_dialog(node_t* root, const char* id)
{
    for (int i = 0; i < root->childs_count; i++) {
        node_t* face = &root->childs[i];
        if (!is_named(face, "interface"))
            continue;
        char* view = xml_node_get_key(face, "view");
        if (view && strcmp(view, "cli"))
            continue;
        for (int k = 0; k < face->childs_count; k++) {
            node_t* dialog = &face->childs[k];
            char* dialog_id = xml_node_get_key(dialog, "id");
            if (is_named(dialog, "dialog") && dialog_id && !strcmp(dialog_id, id))
                return dialog;
        }
    }
    return nullptr;
}

int sequence_exec_dialog(session_t* session, node_t* action, node_t* root, char* id)
{
    if (!session || !action || !root || !id) {
        error("sequence_exec_dialog: Unknown dialog \"%s\"", nz(id));
        return -1;
    }
    node_t* dialog = find_dialog(root, id);
    if (!dialog) {
        error("sequence_exec_dialog: Unknown dialog \"%s\"", id);
        return -1;
    }
    env_set_string(session, "SAVE_IN_VISITED", "");
    char* save = xml_node_get_key(dialog, "save_in_visited");
    const char* save_in_visited = save ? save : "yes";
    print_log("sequence_exec_dialog: show \"%s\" dialog", id);
    print_log("sequence_exec_dialog: save_in_visited is %s ", save_in_visited);
    env_set_string(session, "SAVE_IN_VISITED", save_in_visited);
    env_set_string(session, "CURRENT_DIALOG", id);
    show_dialog(session, dialog);
    sequence_exec_action(session, action);
    return 0;
}

int sequence_exec_built_in_action(session_t* session, node_t* action)
{
    if (!session || !action) {
        LOG_NULL_PARAM();
        return 0;
    }
    int result = actions_execute(session, xml_node_get_key(action, "func"));
    set_exit_code(session, result);
    sequence_exec_action(session, action);
    return 0;
}

int sequence_exec_plugin_c_action(session_t* session, cab_t* cab, node_t* action)
{
    if (!session || !action) {
        LOG_NULL_PARAM();
        return 0;
    }
    char* file = xml_node_get_key(action, "file");
    char* expanded = file ? expand_operand(session, file) : nullptr;
    shellexec_args_t plugin = {};
    plugin.component = xml_node_get_key(action, "component");
    plugin.file = expanded;
    plugin.func = xml_node_get_key(action, "func");
    int result = plugin_run(session, cab, &plugin);
    free(expanded);
    print_log("sequence_exec_plugin_c_action: exit code \"%d\"", result);
    set_exit_code(session, result);
    sequence_exec_action(session, action);
    return 0;
}

int sequence_exec_plugin_bash_action(session_t* session, cab_t* cab, node_t* action, int posix)
{
    if (!session || !action) {
        LOG_NULL_PARAM();
        return 0;
    }
    shellexec_args_t call = {};
    call.component = xml_node_get_key(action, "component");
    call.file = xml_node_get_key(action, "file");
    call.func = xml_node_get_key(action, "func");
    call.vars = xml_node_get_key(action, "vars");
    call.posix = posix;
    int result = shellexec_execute(session, cab ? cab : &session->cab, &call);
    print_log("sequence_exec_plugin_bash_action: exit code \"%d\"", result);
    set_exit_code(session, result);
    sequence_exec_action(session, action);
    return 0;
}

int sequence_exec_typed_action(session_t* session, cab_t* cab, node_t* root, node_t* action)
{
    if (!session || !action) {
        LOG_NULL_PARAM();
        return -1;
    }
    char* id = xml_node_get_key(action, "id");
    char* type_attr = xml_node_get_key(action, "type");
    const char* type = type_attr ? type_attr : "action";
    char* call = xml_node_get_key(action, "call");
    if (env_exists(session, "__debug_wizard__"))
        dump_debug_info(session, action);

    if (!strcmp(type, "action")) {
        print_log("sequence_execute_document: call \"%s\" action", nz(id));
        return sequence_exec_action(session, action);
    }
    if (!strcmp(type, "dialog")) {
        print_log("sequence_execute_document: call \"%s\" dialog", nz(id));
        sequence_exec_dialog(session, action, root, call);
        return 0;
    }
    if (!strcmp(type, "plugin_c")) {
        print_log("sequence_execute_document: call \"%s\" C plug-in", nz(id));
        return sequence_exec_plugin_c_action(session, cab, action);
    }
    if (!strcmp(type, "plugin_bash")) {
        print_log("sequence_execute_document: call \"%s\" Bash plug-in", nz(id));
        return sequence_exec_plugin_bash_action(session, cab, action, 0);
    }
    if (!strcmp(type, "plugin_sh")) {
        print_log("sequence_execute_document: call \"%s\" Shell plug-in", nz(id));
        return sequence_exec_plugin_bash_action(session, cab, action, 1);
    }
    if (!strcmp(type, "built_in")) {
        print_log("sequence_execute_document: call \"%s\" built-in action", nz(id));
        return sequence_exec_built_in_action(session, action);
    }
    error("sequence_execute_document: Unknown type of the action - %s", type);
    return -1;
}
