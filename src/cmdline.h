// The command line: every "--key value" pair becomes a property of the
// command-line session, merged into the engine session after configuration.
#ifndef KELM_CMDLINE_H
#define KELM_CMDLINE_H

#include <string>

#include "session.h"

// Long names of the one-letter options, between semicolons.
extern const char* g_cmdline_shortcuts;

// Parses argv into the command-line session; values are expanded against
// the engine session. 0, or -1 at the first bad argument (after printing it).
int parse_command_line(session_t* engine, int argc, char** argv, session_t* command_line);
// 0 when the name is null, empty or a valid key; -1 otherwise.
int check_env_name(const char* name);
// "--" + long name when the argument's second character is a shortcut
// letter, else null. The caller frees the result.
char* match_cmdline_shortcut(std::string argument);
// Copies the command-line properties the engine session does not have yet.
int commandline_merge(session_t* engine, env_map_t* command_line);
// Prints the package's help text from the root cab; 0, or -1 on null.
int show_help(session_t* session);

#endif
