// The string table: the index of the package's language files. Loading
// parses the files of every language named in strings.ini; binding picks the
// language by the property LANG (falling back to "default") and copies its
// strings into the properties, where dialogs and messages find them by id.
// Both loading and binding may be repeated, also as built-in actions.
#ifndef KELM_STRING_TABLE_H
#define KELM_STRING_TABLE_H

#include "session.h"

struct node_t;

// Room for lines of strings.ini; lines beyond it are refused.
#define STRING_TABLE_CAPACITY 1024

// Builds the table from STRING_TABLE_ROOT/strings.ini when that file exists
// (the property defaults to ENGINE_DIR), else from the root cab's
// _internal_::strings.ini. A table loaded before is released. 0 or -1.
int string_table_init(session_t* session);

// 1 when root + "/strings.ini" is a file, 0 when not, -1 for a null root.
int string_table_is_external(const char* root);

// The two sources of strings.ini: a directory on disk, or the root cab.
// Both hand the text to string_table_parse_ini. 0 or -1.
int load_string_from_directory(session_t* session, const char* root);
int load_string_from_store(session_t* session);

// Loads one string file per line of "language:component:file[:condition]"
// text. An empty component means a file under ENGINE_DIR. Lines of fewer
// than three fields are skipped; the condition counts only on lines of
// exactly four. Stops with -1 at a file that cannot be read, keeping the
// lines loaded before it; 0 otherwise.
int string_table_parse_ini(session_t* session, const char* ini);

// Chooses the language: the first line whose language equals LANG and whose
// condition holds, or else "default". Then applies every line of that
// language whose condition holds, in file order, so later files override
// earlier ones. 0, or -1 for a null session.
int string_table_bind(session_t* session);

// Applies one element and its subtree: <string name="id">text</string> sets
// the property id to the text byte for byte; <include component="c"
// file="f"/> applies the string file f of component c of the root cab at
// this place. 0, or -1 when the element or an include fails.
int string_xml2prop(session_t* session, node_t* node);

// Releases the table: documents, languages and conditions.
void string_table_free(session_t* session);

#endif
