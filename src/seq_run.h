// Running a sequence: the outer loop over its steps and the interpreter of
// one document. The outer loop keeps the step numbering for the screens,
// runs the layers' sections at each forward move, and can move forward,
// back, into a section of the layers and over into another sequence. The
// interpreter chooses a behavior block, executes actions one after another,
// follows their next and back elements with a stack of visited dialogs, and
// hands a transition code back to the outer loop.
#ifndef KELM_SEQ_RUN_H
#define KELM_SEQ_RUN_H

#include "session.h"
#include "store.h"

struct node_t;

// Transition codes; the outer loop switches on the low byte. With
// SEQ_TRANSITION_IN the bits above the low byte count the next elements of
// the action that were examined, so that the action, run again after the
// layers' section, passes over them.
enum {
    SEQ_TRANSITION_NONE = 0,   // nothing decided
    SEQ_TRANSITION_FIRST = 1,  // go to the step with index 1
    SEQ_TRANSITION_FINISH = 2, // "_finish_"
    SEQ_TRANSITION_NEXT = 3,   // "_next_", or a document with nothing to do
    SEQ_TRANSITION_PREV = 4,   // "_prev_", or back with an empty stack
    SEQ_TRANSITION_IN = 5,     // "_in_": run a section of all layers, come back
    SEQ_TRANSITION_OUT = 6,    // "_out_", and the return from such a section
    SEQ_TRANSITION_JUMP = 7,   // "file:module": continue in another sequence
};

// The stack of visited dialogs of one document run: a linked list of action
// ids, each entry holding its own copy.
struct stack {
    char* id;
    stack* next;
};

// Puts a copy of the id on top; 1, or -1 when memory is short.
int push(stack** top, const char* id);
// Unlinks and frees the top entry; an empty stack stays empty.
void pop(stack** top);
// Logs the entries from the top down.
void print_seq_stack(stack* top);

// Runs the sequence that init_sequence chose, from its first step to its
// end, and releases all loaded sequences afterwards. 0, also after an
// execution error (the driver reads the outcome from properties); -1 on a
// null session, without a sequence, on "_in_" without an action to return
// to, or when a layer's properties cannot be imported.
int sequence_execute(session_t* session);

// Runs one document. cab is the root cab for a step's own document, or the
// layer for a layer's; root is the document's root element (null: nothing
// to do, transition 3). section is null for a step's own document, or the
// id of the step or nested module whose behavior block a layer runs.
// *action holds the action to start with and, on "_in_", receives a new
// copy of the action to come back to; action is null for a layer, which
// cannot use "_in_". *sub receives the section for "_in_", *module a new
// copy of the module named by a jump "file:module". 0, or -1 on an unknown
// action type, a malformed jump, "_in_" in a layer, or missing arguments.
int sequence_execute_document(session_t* session, cab_t* cab, node_t* root, char* section, char** action,
                              int* transition, char** sub, char** module);

#endif
