// Properties: named strings on two levels. The global level is the
// session's map; while a layer's code runs (session->scope set), writes go
// to that layer's own map and reads look there first. Operand expansion,
// which resolves ${name} references in package texts, lives here too.
#ifndef KELM_ENV_H
#define KELM_ENV_H

#include <string>

#include "session.h"

// Name of the file through which properties cross to an elevated process.
#define ENV_FILE_NAME "orvan.kelm.root.env_file"

// Empties the map of the current level.
int env_init(session_t* session);
// Empties the given map.
int env_free(env_map_t* env);

// Sets a property; "-" in the name becomes "_". 0, or -1 on null arguments.
int env_set_string(session_t* session, const char* name, const char* value);
int env_set_string(session_t* session, const std::string& name, const std::string& value);
// The value, or the empty string for a missing property.
std::string env_get_string(session_t* session, const char* name);
std::string env_get_string(session_t* session, const std::string& name);
bool env_exists(session_t* session, const char* name);
bool env_exists(session_t* session, const std::string& name);
// Appends to a property; a missing one counts as empty.
int env_cat_string(session_t* session, const char* name, const char* value);
int env_cat_string(session_t* session, const std::string& name, const std::string& value);
// Removes a global property; 0 also when it did not exist.
int env_remove(session_t* session, std::string name);

// The global properties as "name#value\n" lines in name order.
std::string env_dump(session_t* session);
// Writes the global properties to tmp_dir/ENV_FILE_NAME; 0 even when the
// file cannot be written.
int env_save(session_t* session);
// Reads tmp_dir/ENV_FILE_NAME back into the current level; 0 or -1.
int env_restore(session_t* session);
// Parses environment-file text into the current level, as env_restore does.
int env_restore_from_buffer(session_t* session, char* buffer, int size);

// The same operations on a given map, without levels or name translation.
int env_set_string_internal(env_map_t* env, const std::string& name, const std::string& value);
std::string env_get_string_internal(env_map_t* env, const std::string& name);
bool env_exists_internal(env_map_t* env, const std::string& name);

// True when the property's value must stay out of the log.
bool env_is_hidden_name(const std::string& name);

// Replaces the four XML entities, in order; returns the input itself when
// none occurs, else a new string. Null input gives null.
char* env_replace_tags(char* text);
// Resolves ${name} references, enclosing quotes and entities, level after
// level until no "${" is left; the caller frees the result. Null on a null
// argument. A text that never finishes (a reference cycle, an escaped "${")
// is given back as it stands after 64 levels or 16 MiB of growth.
char* expand_operand(session_t* session, const char* op);
// expand_operand that also tells, through *hidden (when not null), whether a
// reference named a property whose value must stay out of the log.
char* expand_operand_marked(session_t* session, const char* op, bool* hidden);
// expand_operand on a std::string; the empty string where it gives null.
std::string expand_string(session_t* session, const std::string& op);

#endif
