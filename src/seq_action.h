// The kinds of actions a sequence document runs. An action element's type
// chooses one: "action" (only its set children), "dialog", "built_in" (an
// engine action by name), "plugin_c" (a function in a shared library), and
// "plugin_bash" / "plugin_sh" (a shell function). Every kind except the
// plain one and the dialog leaves its result in EXIT_CODE, and all end with
// the action's set children.
#ifndef KELM_SEQ_ACTION_H
#define KELM_SEQ_ACTION_H

#include "session.h"
#include "store.h"

struct node_t;

// Runs the action by its type; cab is where the document came from (the
// root cab, or a layer) and root the document's root element. 0, or -1 for
// an unknown type.
int sequence_exec_typed_action(session_t* session, cab_t* cab, node_t* root, node_t* action);

// Does the set children of the action: each whose condition holds assigns
// its property the expanded value, and calls its shell function (in bash)
// when it names component, file and func, storing the result in EXIT_CODE.
// 0.
int sequence_exec_action(session_t* session, node_t* action);

// Shows the dialog with the id from an interface element of the document
// (one without view, or with view "cli"), then does the set children. Sets
// SAVE_IN_VISITED and CURRENT_DIALOG first. 0, or -1 for an unknown id.
int sequence_exec_dialog(session_t* session, node_t* action, node_t* root, char* id);

// Runs the registered action named by func; EXIT_CODE gets its result. 0.
int sequence_exec_built_in_action(session_t* session, node_t* action);

// Runs func of the library file (expanded) through plugin_run; EXIT_CODE
// gets its result. 0.
int sequence_exec_plugin_c_action(session_t* session, cab_t* cab, node_t* action);

// Runs func of the shell script file through shellexec_execute, with sh
// when posix is 1 and bash otherwise; EXIT_CODE gets its status. 0.
int sequence_exec_plugin_bash_action(session_t* session, cab_t* cab, node_t* action, int posix);

#endif
