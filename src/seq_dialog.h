// Dialogs on the console: one screen of the text wizard built from a dialog
// element (title, description, questions with numbered, checkbox or radio
// lines, one prompt), answered with one validated line. The answer lands in
// HANDLE and in the property the prompt's keep attribute names; checkbox and
// radio selections live in CURRENT_DIALOG + "_cb" / "_rb".
#ifndef KELM_SEQ_DIALOG_H
#define KELM_SEQ_DIALOG_H

#include <cstdio>

#include "session.h"

struct node_t;

// Shows the dialog and, when it has an input element, asks until an answer
// passes its rules. A number typed for a checkbox or radio line that the
// rules reject toggles that line and draws the dialog again. Sets the
// interrupt return point, so that Ctrl-C answered "No" draws the dialog
// anew. At the end of the input the run ends with status 4. Gives 0, or -1
// on an allocation failure, an unknown question or list type, a bad pattern
// or a missing CURRENT_DIALOG in a checkbox dialog.
int show_dialog(session_t* session, node_t* dialog);

// Makes dialogs read their answers from stream instead of standard input;
// null restores standard input. For tests and tools.
void dialog_set_input(FILE* stream);

// Called when the input ends at a prompt. The default ends the process with
// status 4; a handler that returns makes show_dialog give -1 instead. Null
// restores the default. For tests and tools.
typedef void (*dialog_eof_fn)(void);
void dialog_set_eof_handler(dialog_eof_fn handler);

#endif
