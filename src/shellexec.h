// Shell functions of a package: every property goes into a shell as an
// LI_<name> variable, the function runs, and the engine, started once more
// inside that shell with --__dumpenv__, writes the shell's exported
// environment to a file from which the changed LI_ variables come back as
// properties.
#ifndef KELM_SHELLEXEC_H
#define KELM_SHELLEXEC_H

#include <cstdint>

#include "session.h"
#include "store.h"

// The arguments of one shell-function call, as a sequence step gives them.
struct shellexec_args_t {
    const char* file;      // the script's name
    const char* component; // cab component holding the script; null: beside the engine
    const char* func;      // "name", or "name:seconds" for a time limit
    int32_t posix;         // 1 runs sh, anything else bash
    const char* vars;      // the empty string passes no property at all
};

// One variable handed to the shell; both strings belong to the entry.
struct shellexec_var_t {
    char* name;
    char* value;
    shellexec_var_t* next;
};

// Runs func of the script in a shell with all properties passed in as LI_
// variables, and sets the properties the function exported back. The cab
// is where a script of a component is extracted from when no layer runs.
// Returns 0 when the function ran and its output was read, 1 on a failure
// of that chain, -1 when a returned value could not be stored. The
// function's own exit status is not reported; KELM_SHELLEXEC_STATUS is
// "killed" when its time limit ran out.
int shellexec_execute(session_t* session, cab_t* cab, shellexec_args_t* args);

// The steps of shellexec_execute, exposed for tests and the fuzz target.

// Writes the list to path as LI_<name>="<value>" lines, backslashes
// doubled; 0, or -1 when the file cannot be written.
int _shellexec_create_envlist_file(const char* path, shellexec_var_t* list);
// Forks the shell that sources the init file and the script, calls the
// function and dumps its environment to output; waits for it, or kills it
// at the time limit of func. 0, or -1 when it could not run or died by a
// signal. The child never returns.
int _shellexec_execute_command(session_t* session, const char* script, const char* func, const char* shell,
                               shellexec_var_t* list, const char* output);
// Reads a NUL-separated NAME=value dump and sets every LI_ entry whose value
// differs from the list's as a property, without the prefix. Names are cut
// at 1023 bytes and values at 4095. 0; 1 when the file is missing, empty or
// malformed at its start; -1 when a property could not be set.
int _shellexec_parse_envlist(session_t* session, const char* path, shellexec_var_t* list);
// The same over a buffer already in memory.
int _shellexec_parse_envlist_buffer(session_t* session, const char* data, size_t size, shellexec_var_t* list);
// Runs the command and reads its output: the status shellexec_execute
// returns.
int _shellexec_execute_script(session_t* session, const char* script, const char* func, const char* shell,
                              shellexec_var_t* list, const char* output);

// A list is an empty head entry with the variables after it, so that an
// empty list is still a list. Returns the head, or null when memory is short.
shellexec_var_t* shellexec_var_list_new(void);
// Links a copy of name and value in after the entry (the head or the last
// one); the new entry, or null when memory is short.
shellexec_var_t* shellexec_var_append(shellexec_var_t* after, const char* name, const char* value);
// Frees the head and all entries.
void shellexec_var_list_free(shellexec_var_t* head);

#endif
