// The wizard's debug channel: when the property __debug_wizard__ exists,
// the engine tells a listener of the package authors, before each action,
// where the wizard stands and what all properties hold. The listener owns
// the Unix socket tmp_dir/socket; the engine connects once per action,
// sends one message and expects no reply.
#ifndef KELM_SEQ_DEBUG_H
#define KELM_SEQ_DEBUG_H

#include <string>

#include "session.h"

struct node_t;

// Sends the message about the action to the listener. Does nothing for a
// null action or without __debug_wizard__; every failure is only logged.
void dump_debug_info(session_t* session, node_t* action);

// The message: sequence, step, anchor and action lines, an empty line and
// the dump of the global properties.
std::string seq_debug_message(session_t* session, node_t* action);

#endif
