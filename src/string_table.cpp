// The string table: loading strings.ini and its string files, choosing a
// language, and copying its strings into the properties.
#include "string_table.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cond.h"
#include "env.h"
#include "log.h"
#include "store.h"
#include "utils.h"
#include "xml.h"

// Includes nest at most this deep; a file that includes itself, directly or
// through others, would otherwise recurse without end.
#define STRING_TABLE_MAX_INCLUDE_DEPTH 32

void string_table_free(session_t* session)
{
    if (!session)
        return;
    if (session->string_docs)
        for (int k = 0; k < STRING_TABLE_CAPACITY; k++)
            xml_free(&session->string_docs[k]);
    if (session->string_langs)
        for (int k = 0; k < STRING_TABLE_CAPACITY; k++)
            free(session->string_langs[k]);
    if (session->string_conds)
        for (int k = 0; k < STRING_TABLE_CAPACITY; k++)
            free(session->string_conds[k]);
    delete[] session->string_docs;
    free(session->string_langs);
    free(session->string_conds);
    session->string_docs = nullptr;
    session->string_langs = nullptr;
    session->string_conds = nullptr;
    session->string_last = -1;
}

// Fresh, empty arrays for the table; 0 or -1.
static int string_table_alloc(session_t* session)
{
    string_table_free(session);
    session->string_docs = new (std::nothrow) document_t[STRING_TABLE_CAPACITY];
    if (!session->string_docs) {
        error("string_table_root: malloc failed");
        return -1;
    }
    session->string_langs = (char**)calloc(STRING_TABLE_CAPACITY, sizeof(char*));
    session->string_conds = (char**)calloc(STRING_TABLE_CAPACITY, sizeof(char*));
    if (!session->string_langs || !session->string_conds) {
        error("string_table_init: malloc failed");
        string_table_free(session);
        return -1;
    }
    return 0;
}

int string_table_init(session_t* session)
{
    if (!session) {
        error("string_table_init: session is NULL");
        return -1;
    }
    if (!env_exists(session, "STRING_TABLE_ROOT"))
        env_set_string(session, "STRING_TABLE_ROOT", env_get_string(session, "ENGINE_DIR"));
    std::string root = env_get_string(session, "STRING_TABLE_ROOT");

    if (string_table_alloc(session) != 0)
        return -1;

    if (string_table_is_external(root.c_str()) == 1) {
        print_log("string_table_init: get strings.ini from %s", root.c_str());
        return load_string_from_directory(session, root.c_str());
    }
    print_log("string_table_init: There is no strings.ini in %s, get it from store", root.c_str());
    return load_string_from_store(session);
}

int string_table_is_external(const char* root)
{
    if (!root) {
        LOG_NULL_PARAM();
        return -1;
    }
    std::string ini = std::string(root) + "/strings.ini";
    return is_file(ini.c_str()) ? 1 : 0;
}

int load_string_from_directory(session_t* session, const char* root)
{
    if (!session) {
        error("load_string_from_directory: session is null");
        return -1;
    }
    if (!root) {
        error("load_string_from_directory: string table root is null");
        return -1;
    }
    char* path = get_string("%s/strings.ini", root);
    if (!path) {
        error("load_string_from_directory: get string failed");
        return -1;
    }
    char* ini = get_file(path, false);
    free(path);
    if (!ini) {
        error("string_table_parse_ini: ini is null");
        return -1;
    }
    int result = string_table_parse_ini(session, ini);
    free(ini);
    return result;
}

int load_string_from_store(session_t* session)
{
    if (!session) {
        error("load_string_from_store: session is null");
        return -1;
    }
    if (store_file_exists(&session->cab, "_internal_", "strings.ini") != 1) {
        print_log("load_string_from_store: There is no _internal_::strings.ini");
        return -1;
    }
    print_log("load_string_from_store: Let's get strings.ini content");
    char* ini = nullptr;
    int size = 0;
    store_file_get_content(&session->cab, "_internal_", "strings.ini", &ini, &size, nullptr);
    if (!ini) {
        error("load_string_from_store: can't read _orvannal_::strings.ini.");
        return -1;
    }
    int result = string_table_parse_ini(session, ini);
    free(ini);
    return result;
}

// The text of one string file: from the root cab, or with an empty
// component from ENGINE_DIR on disk. Null when it cannot be read; *where
// names the file for the reports.
static char* string_table_read_file(session_t* session, const char* component, const char* file, std::string* where)
{
    char* content = nullptr;
    if (!*component) {
        *where = env_get_string(session, "ENGINE_DIR") + "/" + file;
        print_log("string_table_parse_ini: get string file %s", where->c_str());
        content = get_file(where->c_str(), false);
    } else {
        *where = std::string(component) + ":" + file;
        print_log("string_table_parse_ini: get string file %s", where->c_str());
        int size = 0;
        store_file_get_content(&session->cab, component, file, &content, &size, nullptr);
    }
    return content;
}

int string_table_parse_ini(session_t* session, const char* ini)
{
    if (!session) {
        error("string_table_parse_ini: session is null");
        return -1;
    }
    if (!ini) {
        error("string_table_parse_ini: ini is null");
        return -1;
    }
    print_log("string_table_parse_ini: start parsing of the strings definition \n%s\n", ini);
    if (!session->string_docs && string_table_alloc(session) != 0)
        return -1;

    char* text = strdup(ini);
    if (!text) {
        error("%s:%d: allocation of parameter failed", "src/string_table", __LINE__);
        return -1;
    }
    int size = (int)strlen(text);
    int position = 0;
    int number = 0;
    char* line;
    while ((line = get_next_line(text, size, &position)) != nullptr) {
        int count = 0;
        char** fields = parse_ini_line(line, &count, ':');
        if (!fields && *line && *line != '#') {
            // Only a line with text can fail to split; blank lines and
            // comments have no fields and are skipped below.
            error("%s:%d: parameter is null", "src/string_table", __LINE__);
            free(text);
            return -1;
        }
        if (count < 3) {
            print_log("string_table_parse_ini: less than 3 items in the line, skipping it");
            free_ini_pieces(fields, count);
            continue;
        }
        if (number >= STRING_TABLE_CAPACITY) {
            error("string_table_parse_ini: more than %d string files, skipping %s", STRING_TABLE_CAPACITY, line);
            free_ini_pieces(fields, count);
            continue;
        }

        std::string where;
        char* content = string_table_read_file(session, fields[1], fields[2], &where);
        if (!content) {
            error("string_table_parse_ini: can't read %s", where.c_str());
            free_ini_pieces(fields, count);
            free(text);
            return -1;
        }

        session->string_last = number;
        // A broken string file still gives what was parsed before the fault.
        xml_free(&session->string_docs[number]);
        xml_parse((const char*)content, &session->string_docs[number]);
        free(session->string_langs[number]);
        free(session->string_conds[number]);
        session->string_langs[number] = strdup(fields[0]);
        session->string_conds[number] = count == 4 && *fields[3] ? strdup(fields[3]) : nullptr;
        number++;

        free(content);
        free_ini_pieces(fields, count);
    }
    free(text);
    return 0;
}

// Whether line k's condition holds; a line without one always applies.
static bool string_table_condition_holds(session_t* session, int k)
{
    const char* condition = session->string_conds[k];
    return !condition || cond_is_true(condition, session) == 1;
}

static void string_table_apply_document(session_t* session, document_t* document)
{
    for (int k = 0; k < document->nodes_count; k++)
        string_xml2prop(session, &document->nodes[k]);
}

int string_table_bind(session_t* session)
{
    if (!session) {
        error("string_table_bind: session is null");
        return -1;
    }
    std::string lang = env_get_string(session, "LANG");
    if (lang.empty()) {
        print_log("string_table_bind: LANG is not defined. Use defualt");
        lang = "default";
    } else {
        print_log("string_table_bind: lang is %s", lang.c_str());
    }

    bool found = false;
    for (int k = 0; k <= session->string_last && !found; k++) {
        const char* line_lang = session->string_langs[k];
        print_log("string_table_bind: check lang %s against %s", line_lang, lang.c_str());
        if (lang != line_lang) {
            print_log("string_table_bind: skip lang %s", line_lang);
        } else if (string_table_condition_holds(session, k)) {
            print_log("string_table_bind: desired lang is found");
            found = true;
        } else {
            print_log("string_table_bind: condition is not true, skip this lang");
        }
    }
    if (!found) {
        lang = "default";
        print_log("string_table_bind: desired lang is not found. Search for default");
    }

    for (int k = 0; k <= session->string_last; k++) {
        if (lang != session->string_langs[k])
            continue;
        if (!string_table_condition_holds(session, k)) {
            print_log("string_table_bind: condition is not true");
            continue;
        }
        print_log("string_table_bind: load properties from XML");
        string_table_apply_document(session, &session->string_docs[k]);
    }
    return 0;
}

// The first attribute whose name is exactly name, or null.
static const char* string_table_exact_key(node_t* node, const char* name)
{
    for (int k = 0; k < node->keys_count; k++)
        if (node->keys[k].name && strcmp(node->keys[k].name, name) == 0)
            return node->keys[k].value;
    return nullptr;
}

static int string_xml2prop_at(session_t* session, node_t* node, int depth);

// Applies the string file named by an include element; 0 or -1.
static int string_table_include(session_t* session, node_t* node, int depth)
{
    print_log("string_xml2prop: include directive");
    const char* file = xml_node_get_key(node, "file");
    if (!file) {
        error("string_xml2prop: name of the file is missing");
        return -1;
    }
    const char* component = xml_node_get_key(node, "component");
    if (!component)
        return 0;
    if (depth >= STRING_TABLE_MAX_INCLUDE_DEPTH) {
        error("string_xml2prop: includes nested deeper than %d at %s::%s, not read", STRING_TABLE_MAX_INCLUDE_DEPTH,
              component, file);
        return -1;
    }
    char* content = nullptr;
    int size = 0;
    store_file_get_content(&session->cab, component, file, &content, &size, nullptr);
    if (!content) {
        error("string_xml2prop: can't read %s::%s.", component, file);
        return -1;
    }
    document_t document;
    xml_parse((const char*)content, &document);
    free(content);
    for (int k = 0; k < document.nodes_count; k++)
        string_xml2prop_at(session, &document.nodes[k], depth + 1);
    xml_free(&document);
    return 0;
}

static int string_xml2prop_at(session_t* session, node_t* node, int depth)
{
    if (!node) {
        error("string_xml2prop: NODE is NULL");
        return -1;
    }
    if (!session) {
        error("string_xml2prop: session is null");
        return -1;
    }
    if (node->name && strcmp(node->name, "include") == 0) {
        if (string_table_include(session, node, depth) != 0)
            return -1;
    } else if (node->name && strcmp(node->name, "string") == 0) {
        const char* name = string_table_exact_key(node, "name");
        if (name && node->data_len >= 0)
            env_set_string(session, std::string(name),
                           node->data ? std::string(node->data, node->data_len) : std::string());
    }
    for (int k = 0; k < node->childs_count; k++)
        string_xml2prop_at(session, &node->childs[k], depth);
    return 0;
}

int string_xml2prop(session_t* session, node_t* node)
{
    return string_xml2prop_at(session, node, 0);
}
