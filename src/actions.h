// The action registry: the table of engine operations a package's sequence
// may call by name. Every action takes the session alone and returns the
// value that becomes EXIT_CODE.
#ifndef KELM_ACTIONS_H
#define KELM_ACTIONS_H

#include "session.h"

typedef int (*action_fn)(session_t*);

struct action_t {
    action_fn fn;
    const char* name;
};

// Room in the table: indices 0 to KELM_ACTIONS_MAX.
#define KELM_ACTIONS_MAX 1024

// Allocates the table and registers the built-in actions in order; 0 or -1.
int actions_init(session_t* session);
// Appends an action; the first of equal names wins in lookups. 0 or -1.
int actions_register(session_t* session, const char* name, action_fn fn);
// 0 when an action of that exact name is registered, else -1.
int actions_is_valid(session_t* session, const char* name);
// Runs the named action and returns its result; -1 when it is unknown.
int actions_execute(session_t* session, const char* name);
// Writes the table to the log; 0 or -1.
int actions_dump(session_t* session);

#endif
