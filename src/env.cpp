// Properties on two levels, the environment file, and operand expansion.
#include "env.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "seq.h"
#include "utils.h"

static env_map_t* env_current_map(session_t* session)
{
    return session->scope ? &session->scope->env : &session->env;
}

bool env_is_hidden_name(const std::string& name)
{
    return name.find("__HIDE__") != std::string::npos;
}

int env_init(session_t* session)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    env_current_map(session)->clear();
    return 0;
}

int env_free(env_map_t* env)
{
    if (!env) {
        LOG_NULL_PARAM();
        return -1;
    }
    env->clear();
    return 0;
}

int env_set_string(session_t* session, const std::string& name, const std::string& value)
{
    if (!session) {
        error("%s:%d: parameter is null", "src/env", __LINE__);
        return -1;
    }
    std::string key = replaceAllSubstrings(name, "-", "_");
    if (env_is_hidden_name(key))
        print_log("env_set_string_internal: key \"%s\" with value [HIDDEN] (length %d)", key.c_str(), (int)key.size());
    else
        print_log("env_set_string_internal: key \"%s\" with value \"%s\" (length %d)", key.c_str(), value.c_str(),
                  (int)value.size());
    (*env_current_map(session))[key] = value;
    return 0;
}

int env_set_string(session_t* session, const char* name, const char* value)
{
    if (!session || !name || !value) {
        error("%s:%d: parameter is null", "src/env", __LINE__);
        return -1;
    }
    return env_set_string(session, std::string(name), std::string(value));
}

std::string env_get_string(session_t* session, const std::string& name)
{
    if (!session) {
        error("env_get_string: session is null");
        return "";
    }
    if (session->scope) {
        auto local = session->scope->env.find(name);
        if (local != session->scope->env.end())
            return local->second;
    }
    auto global = session->env.find(name);
    return global == session->env.end() ? std::string() : global->second;
}

std::string env_get_string(session_t* session, const char* name)
{
    if (!session) {
        error("env_get_string: session is null");
        return "";
    }
    if (!name) {
        error("env_get_string: name is null");
        return "";
    }
    return env_get_string(session, std::string(name));
}

bool env_exists(session_t* session, const std::string& name)
{
    if (!session) {
        print_log("env_exists: session is NULL");
        return false;
    }
    if (session->scope && session->scope->env.count(name))
        return true;
    return session->env.count(name) != 0;
}

bool env_exists(session_t* session, const char* name)
{
    if (!session) {
        print_log("env_exists: session is NULL");
        return false;
    }
    if (!name) {
        print_log("env_exists: name is NULL");
        return false;
    }
    return env_exists(session, std::string(name));
}

int env_cat_string(session_t* session, const std::string& name, const std::string& value)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    return env_set_string(session, name, env_get_string(session, name) + value);
}

int env_cat_string(session_t* session, const char* name, const char* value)
{
    if (!session || !name || !value) {
        error("%s:%d: parameter is null", "src/env", __LINE__);
        return -1;
    }
    return env_cat_string(session, std::string(name), std::string(value));
}

int env_remove(session_t* session, std::string name)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    session->env.erase(name);
    return 0;
}

std::string env_dump(session_t* session)
{
    if (!session) {
        LOG_NULL_PARAM();
        return "";
    }
    std::string text;
    for (const auto& [name, value] : session->env) {
        text += name;
        text += '#';
        text += value;
        text += '\n';
    }
    return text;
}

static std::string env_file_path(session_t* session)
{
    return env_get_string(session, "tmp_dir") + "/" ENV_FILE_NAME;
}

int env_save(session_t* session)
{
    print_log("env_save: started");
    if (!session) {
        error("env_save: session is null");
        return -1;
    }
    std::string file_path = env_file_path(session);
    FILE* file = fopen(file_path.c_str(), "w");
    if (!file) {
        print_log("env_save: unable to write environment to file");
        return 0;
    }
    std::string text = env_dump(session);
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
    chmod(file_path.c_str(), 0777);
    print_log("env_save: finished");
    return 0;
}

int env_restore_from_buffer(session_t* session, char* buffer, int size)
{
    std::string current, value;
    int position = 0;
    while (char* line = get_next_line(buffer, size, &position)) {
        int count = 0;
        char** pieces = parse_ini_line(line, &count, '#');
        if (!pieces) {
            // An empty line, or one starting with '#': the gathered value
            // buffer becomes the current name; the format's known oddity.
            if (!current.empty()) {
                value += "\n";
                current = value;
            }
        } else if (count >= 2) {
            current = pieces[0];
            env_set_string(session, current, pieces[1]);
        } else if (line[strlen(line) - 1] == '#') {
            current = pieces[0];
            env_set_string(session, current, "");
        } else {
            // A name that is no property (the gathered text after an empty
            // line) keeps the buffer as it is.
            if (env_exists(session, current))
                value = env_get_string(session, current);
            value += "\n";
            value += line;
            env_set_string(session, current, value);
        }
        free_ini_pieces(pieces, count);
    }
    return 0;
}

int env_restore(session_t* session)
{
    if (!session) {
        error("env_restore: session is null");
        return -1;
    }
    std::string file_path = env_file_path(session);
    FILE* file = fopen(file_path.c_str(), "rb");
    if (!file) {
        print_log("env_restore: unable to read environment from file");
        return -1;
    }
    std::string content;
    char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0)
        content.append(chunk, got);
    fclose(file);
    return env_restore_from_buffer(session, content.data(), (int)content.size());
}

int env_set_string_internal(env_map_t* env, const std::string& name, const std::string& value)
{
    if (!env) {
        error("%s:%d: parameter is null", "src/env", __LINE__);
        return -1;
    }
    (*env)[name] = value;
    return 0;
}

std::string env_get_string_internal(env_map_t* env, const std::string& name)
{
    if (!env) {
        error("env_get_string_internal: env is null.");
        return "";
    }
    auto found = env->find(name);
    return found == env->end() ? std::string() : found->second;
}

bool env_exists_internal(env_map_t* env, const std::string& name)
{
    if (!env) {
        error("env_exists_internal: env is NULL");
        return false;
    }
    return env->count(name) != 0;
}

/* ---- operand expansion ---- */

static const char* const entity_names[4] = {"&lt;", "&gt;", "&quot;", "&amp;"};
static const char* const entity_values[4] = {"<", ">", "\"", "&"};

char* env_replace_tags(char* text)
{
    if (!text) {
        error("env_replace_tags: input string is NULL");
        return nullptr;
    }
    bool any = false;
    for (const char* entity : entity_names)
        if (strstr(text, entity))
            any = true;
    if (!any)
        return text;
    std::string result = text;
    for (int i = 0; i < 4; i++)
        result = replaceAllSubstrings(result, entity_names[i], entity_values[i]);
    char* copy = strdup(result.c_str());
    if (!copy)
        error("env_replace_tags: calloc failed");
    return copy;
}

// Guards against texts that never finish expanding: a property whose value
// refers to itself, directly or through others, or an escaped "\${" that
// keeps its "${" at every level. Deeper than EXPAND_MAX_DEPTH levels, or once
// one level's result would grow beyond EXPAND_MAX_GROWTH bytes more than the
// original operand (a value holding its own reference twice doubles at each
// level), the text is returned as it stands at that level, and logged.
static const int EXPAND_MAX_DEPTH = 64;
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
// The fuzzer builds doubling values at once; a small limit keeps runs fast.
static const size_t EXPAND_MAX_GROWTH = 64u << 10;
#else
static const size_t EXPAND_MAX_GROWTH = 16u << 20;
#endif

// What one expansion carries through its levels.
struct expand_state_t {
    int depth;
    size_t limit;
    bool hidden; // a reference named a property whose value stays out of the log
};

static char* finish_tags(char* text)
{
    char* replaced = env_replace_tags(text);
    if (replaced != text)
        free(text);
    return replaced;
}

// The text for a log line: the operand itself, unless a hidden property's
// value may have been expanded into it.
static const char* loggable(const expand_state_t* state, const char* text)
{
    return state->hidden ? "[HIDDEN]" : text;
}

static const std::string empty_value;

// The value a reference stands for, without copying it; null when missing.
// Local properties come first, as for env_get_string.
static const std::string* env_find(session_t* session, const std::string& name)
{
    if (session->scope) {
        auto local = session->scope->env.find(name);
        if (local != session->scope->env.end())
            return &local->second;
    }
    auto global = session->env.find(name);
    return global == session->env.end() ? nullptr : &global->second;
}

static char* expand_operand_level(session_t* session, const char* op, expand_state_t* state)
{
    if (!session || !op) {
        error("%s:%d: parameter is null", __FILE__, __LINE__);
        return nullptr;
    }
    if (!*op)
        return strdup("");
    char* copy = strdup(op);
    if (!copy) {
        error("expand_operand: strdup of op failed");
        return strdup("");
    }
    size_t length = strlen(copy);
    if (length && (copy[length - 1] == '"' || copy[length - 1] == '\''))
        copy[--length] = '\0';
    if (length && (copy[0] == '"' || copy[0] == '\'')) {
        memmove(copy, copy + 1, length);
        length--;
    }
    // The recursion ends with the first level that holds no reference.
    if (!strstr(op, "${"))
        return finish_tags(copy);
    if (state->depth >= EXPAND_MAX_DEPTH) {
        error("expand_operand: recursion depth %d reached, operand left as it is: %s", state->depth,
              loggable(state, op));
        free(copy);
        return strdup(op);
    }

    // The room is tracked as a buffer that doubles, so that growth shows in
    // the log a few times at most; std::string does the actual allocation.
    std::string result;
    size_t room = 512;
    result.reserve(room);
    // Where the next '}' and '>' stand; kept as the scan moves on, so that
    // looking for closers stays linear in the length of the text.
    const char* next_brace = strchr(copy, '}');
    const char* next_angle = strchr(copy, '>');
    size_t i = 0;
    while (i < length) {
        // Text up to the next '$' is copied as it is.
        const char* dollar = (const char*)memchr(copy + i, '$', length - i);
        size_t stop = dollar ? (size_t)(dollar - copy) : length;
        if (stop > i) {
            while (result.size() + (stop - i) + 1 > room) {
                print_log("expand_operand: increasing result size with %d to %d", (int)room, (int)(room * 2));
                room *= 2;
            }
            result.reserve(room);
            result.append(copy + i, stop - i);
            i = stop;
        }
        if (!dollar)
            break;
        bool reference =
            (i == 0 || copy[i - 1] != '\\') && i + 1 < length && (copy[i + 1] == '{' || copy[i + 1] == '<');
        if (!reference) {
            result += '$';
            i++;
            continue;
        }
        // The first '}' anywhere behind the '$' closes, whatever opened;
        // only without one does a '>' close.
        if (next_brace && next_brace <= copy + i)
            next_brace = strchr(copy + i + 1, '}');
        if (next_angle && next_angle <= copy + i)
            next_angle = strchr(copy + i + 1, '>');
        const char* closer = next_brace ? next_brace : next_angle;
        if (!closer) {
            error("expand_operand: operand %s is erroneous\n", loggable(state, op));
            free(copy);
            return strdup(op);
        }
        std::string name(copy + i + 2, closer - (copy + i + 2));
        if (env_is_hidden_name(name))
            state->hidden = true;
        const std::string* found = env_find(session, name);
        const std::string& value = found ? *found : empty_value;
        if (result.size() + value.size() > state->limit) {
            error("expand_operand: result would exceed %zu bytes, operand left as it is: %s", state->limit,
                  loggable(state, op));
            free(copy);
            return strdup(op);
        }
        if (result.size() + value.size() + 1 > room) {
            room = std::max(room * 2, result.size() + value.size() + 1);
            print_log("expand_operand: increasing result size to %d to let variable value fit", (int)room);
            result.reserve(room);
        }
        result += value;
        i = closer - copy + 1;
    }
    free(copy);
    char* expanded = strdup(result.c_str());
    if (!expanded) {
        error("expand_operand: result calloc failure.");
        return nullptr;
    }
    expanded = finish_tags(expanded);
    if (!expanded)
        return nullptr;
    state->depth++;
    char* deeper = expand_operand_level(session, expanded, state);
    free(expanded);
    return deeper;
}

char* expand_operand_marked(session_t* session, const char* op, bool* hidden)
{
    expand_state_t state = {0, EXPAND_MAX_GROWTH + (op ? strlen(op) : 0), false};
    char* result = expand_operand_level(session, op, &state);
    if (hidden)
        *hidden = state.hidden;
    return result;
}

char* expand_operand(session_t* session, const char* op)
{
    return expand_operand_marked(session, op, nullptr);
}

std::string expand_string(session_t* session, const std::string& op)
{
    char* expanded = expand_operand(session, op.c_str());
    std::string result = expanded ? expanded : "";
    free(expanded);
    return result;
}
