// The action registry and the table of built-in actions.
#include "actions.h"

#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "string_table.h"
#include "sushell.h"

// The built-in actions in registration order, which is also the search
// order. Each engine unit adds its entries here as it arrives, at its place
// in the order below:
//   string_table_bind, string_table_init, coex_diag_init, coex_diag_update,
//   coex_diag_finalize, coex_diag_act, coex_diag_show, install,
//   progress_bar_init, progress_bar_update, progress_bar_finish,
//   prerequisites_init, prerequisites_os_check, prerequisites_system_check,
//   prerequisites_disk_space_check, load_silent_config, save_silent_config,
//   kelm_tool_selection_dialog_act, kelm_set_summary_text,
//   kelm_install_selected_products, kelm_uninstall_selected_products,
//   kelm_init_products_list, kelm_reindex_products_list,
//   kelm_fill_prerequisites_list, kelm_select_all_available_products,
//   kelm_select_chosen_products, kelm_fill_abbr_var, kelm_remove_skip_products,
//   kelm_is_component_list_empty, kelm_calculate_require_disk_space,
//   kelm_wait_enter_key, kelm_download_rpms, kelm_save_install_settings,
//   kelm_detect_full_uninstall, kelm_init_architecture_configuration,
//   kelm_architecture_configuration, kelm_prepare_download_list,
//   kelm_add_space_requirement, env_save, env_restore, shell_execute_command
static const action_t builtin_actions[] = {
    {string_table_bind, "string_table_bind"},
    {string_table_init, "string_table_init"},
    {env_save, "env_save"},
    {env_restore, "env_restore"},
    {shell_execute_command, "shell_execute_command"},
};

int actions_init(session_t* session)
{
    if (!session) {
        error("actions_init: session is null");
        return -1;
    }
    action_t* table = (action_t*)calloc(KELM_ACTIONS_MAX + 1, sizeof(action_t));
    if (!table) {
        error("actions_init: malloc failed");
        return -1;
    }
    free(session->actions);
    session->actions = table;
    session->actions_last = -1;
    for (const action_t& action : builtin_actions)
        actions_register(session, action.name, action.fn);
    actions_dump(session);
    return 0;
}

int actions_register(session_t* session, const char* name, action_fn fn)
{
    if (!session) {
        error("actions_register: session is null");
        return -1;
    }
    if (!name) {
        error("actions_register: name of the action is null");
        return -1;
    }
    if (!fn) {
        error("actions_register: function pointer is null for %s", name);
        return -1;
    }
    if (!session->actions || session->actions_last >= KELM_ACTIONS_MAX) {
        error("actions_register: maximum number of actions has been reached");
        return -1;
    }
    session->actions_last++;
    session->actions[session->actions_last].fn = fn;
    session->actions[session->actions_last].name = name;
    return 0;
}

static action_t* actions_find(session_t* session, const char* name)
{
    for (int i = 0; session->actions && i <= session->actions_last; i++)
        if (!strcmp(session->actions[i].name, name))
            return &session->actions[i];
    return nullptr;
}

int actions_is_valid(session_t* session, const char* name)
{
    if (!session) {
        error("actions_is_valid: session is null");
        return -1;
    }
    if (!name) {
        error("actions_is_valid: name is null");
        return -1;
    }
    print_log("action_is_valid: search for the %s action", name);
    if (actions_find(session, name)) {
        print_log("actions_is_valid: action is found");
        return 0;
    }
    print_log("action_is_valid: action is not found");
    return -1;
}

int actions_execute(session_t* session, const char* name)
{
    if (!session) {
        error("actions_execute: session is null");
        return -1;
    }
    if (!name) {
        error("actions_execute: name is null");
        return -1;
    }
    print_log("actions_execute: search for the %s action", name);
    action_t* action = actions_find(session, name);
    if (!action) {
        print_log("actions_execute: action is not found");
        return -1;
    }
    print_log("actions_execute: action is found");
    return action->fn(session);
}

int actions_dump(session_t* session)
{
    if (!session) {
        error("actions_dump: session is null");
        return -1;
    }
    print_log("action_dump: started");
    for (int i = 0; session->actions && i <= session->actions_last; i++)
        print_log("actions_dump: action -> %s", session->actions[i].name);
    print_log("action_dumo: finished");
    return 0;
}
