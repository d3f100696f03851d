// The command-line grammar, the merge into the engine session, and help.
#include "cmdline.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "store.h"
#include "utils.h"

const char* g_cmdline_shortcuts = ";silent;duplicate;lang;help;version;tmp-dir;";

static const char* const KEY_PATTERN = "^[a-zA-Z_][a-zA-Z0-9_-]*$";

int check_env_name(const char* name)
{
    if (!name || !*name)
        return 0;
    regex_t* regex = get_regex(KEY_PATTERN, REG_EXTENDED);
    if (!regex)
        return -1;
    int rc = regmatch(regex, name, 0) == 1 ? 0 : -1;
    free_regex(&regex);
    return rc;
}

static bool is_shortcut_letter(char letter)
{
    if (!letter)
        return false;
    char probe[3] = {';', letter, '\0'};
    return strstr(g_cmdline_shortcuts, probe) != nullptr;
}

char* match_cmdline_shortcut(std::string argument)
{
    if (argument.size() < 2 || !is_shortcut_letter(argument[1]))
        return nullptr;
    char probe[3] = {';', argument[1], '\0'};
    const char* start = strstr(g_cmdline_shortcuts, probe) + 1;
    const char* end = strchr(start, ';');
    std::string result = "--" + std::string(start, end - start);
    return strdup(result.c_str());
}

static void store_option(session_t* engine, session_t* command_line, const std::string& key, const char* value,
                         bool query_mode)
{
    std::string expanded = expand_string(engine, value);
    env_set_string(command_line, query_mode ? "query_" + key : key, expanded);
}

static int bad_argument(int index, const char* what)
{
    printf("Incorrect command-line argument: arg %d, key %s\n", index, what);
    return -1;
}

// True when the argument following a key is itself an option, not a value.
static bool looks_like_option(const char* next)
{
    size_t length = strlen(next);
    if (next[0] == '-' && length >= 2 && is_shortcut_letter(next[1]))
        return true;
    return length >= 3 && next[1] == '-';
}

int parse_command_line(session_t* engine, int argc, char** argv, session_t* command_line)
{
    if (!engine || !command_line || !argv) {
        LOG_NULL_PARAM();
        return -1;
    }
    bool query_mode = false;
    for (int i = 1; i < argc; i++) {
        std::string s = argv[i];
        if (s.size() < 3) {
            char* long_form = s.size() == 2 && s[0] == '-' ? match_cmdline_shortcut(s) : nullptr;
            if (!long_form)
                return bad_argument(i, argv[i]);
            s = long_form;
            free(long_form);
        } else if (s.compare(0, 2, "--") != 0) {
            return bad_argument(i, argv[i]);
        }
        std::string key = s.substr(2);
        size_t equals = key.find('=');
        for (size_t k = 0; k < key.size() && k < equals; k++)
            if (key[k] == '-')
                key[k] = '_';

        if (equals != std::string::npos) {
            std::string value = key.substr(equals + 1);
            key.erase(equals);
            store_option(engine, command_line, key, value.c_str(), query_mode);
            if (!key.empty() && check_env_name(key.c_str()) != 0)
                return bad_argument(i, key.c_str());
            continue;
        }
        if (key == "query") {
            env_set_string(command_line, "query", "");
            query_mode = true;
            continue;
        }
        if (i + 1 >= argc) {
            if (check_env_name(key.c_str()) != 0) {
                printf("Incorrect command-line argument: key %s\n", key.c_str());
                return -1;
            }
            env_set_string(command_line, key, "");
            break;
        }
        const char* next = argv[i + 1];
        if (!looks_like_option(next)) {
            store_option(engine, command_line, key, next, query_mode);
            i++;
            if (check_env_name(key.c_str()) != 0)
                return bad_argument(i, key.c_str());
        } else {
            if (check_env_name(key.c_str()) != 0)
                return bad_argument(i + 1, key.c_str());
            env_set_string(command_line, key, "");
        }
    }
    return 0;
}

int commandline_merge(session_t* engine, env_map_t* command_line)
{
    if (!engine) {
        error("commandline_merge: session is null");
        return -1;
    }
    if (!command_line) {
        error("commandline_merge: command line environment is null");
        return -1;
    }
    print_log("commandline_merge: start merging");
    for (const auto& [name, value] : *command_line) {
        print_log("commandline_merge: merge option '%s'", name.c_str());
        if (env_exists(engine, name)) {
            print_log("commandline_merge: property with name exists already. Skip merge for it.");
            continue;
        }
        print_log("commandline_merge: property doesn't exist. Merge it");
        print_log("commandline_merge:       add data '%s'", env_is_hidden_name(name) ? "[HIDDEN]" : value.c_str());
        env_set_string(engine, name, value);
    }
    print_log("commandline_merge: merging finished");
    return 0;
}

// Reads an _internal_ file of the root cab into *text; true when it is there.
static bool help_read(session_t* session, const char* name, char** text)
{
    int size = 0;
    *text = nullptr;
    if (store_file_get_content(&session->cab, STORE_INTERNAL, name, text, &size, nullptr) < 0)
        *text = nullptr;
    return *text != nullptr;
}

int show_help(session_t* session)
{
    if (!session) {
        error("show_help: session is null");
        return -1;
    }
    char* text = nullptr;
    std::string lang = env_get_string(session, "LANG");
    if (!lang.empty()) {
        std::string name = "help_" + lang + ".msg";
        print_log("show_help: language defined. Use %s", name.c_str());
        if (store_file_exists(&session->cab, STORE_INTERNAL, name.c_str())) {
            print_log("show_help: try to extract %s", name.c_str());
            help_read(session, name.c_str(), &text);
        } else {
            print_log("show_help: there is no %s in BOM", name.c_str());
        }
    }
    if (!text) {
        print_log("show_help: Use default help.msg");
        if (!store_file_exists(&session->cab, STORE_INTERNAL, "help.msg")) {
            print_log("show_help: there is no help.msg in BOM");
            return 0;
        }
        print_log("show_help: try to extract help.msg");
        if (!help_read(session, "help.msg", &text)) {
            error("show_help: help message specified in BOM, but content is null");
            return 0;
        }
    }
    print_log("show_help: message extracted");
    printf("%s\n", text);
    free(text);
    return 0;
}
