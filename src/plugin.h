// Library plug-ins: a function of the form int func(session_t*) in a shared
// library of the package, loaded with dlopen, called once with the session
// and closed again. The engine exports all its symbols and the library is
// loaded with global binding, so a plug-in may call any engine function
// (properties, store, XML, log) declared in the headers under src/. The
// function's result becomes EXIT_CODE. A plug-in must not leave pointers to
// its own code in the session: the library is closed right after the call.
#ifndef KELM_PLUGIN_H
#define KELM_PLUGIN_H

#include "session.h"
#include "shellexec.h"
#include "store.h"

// The signature every plug-in function has.
typedef int (*plugin_fn)(session_t* session);

// Loads the library plugin->file and calls plugin->func with the session.
// While a layer runs, the library is the layer's unpacked file (the working
// directory becomes the layer's folder); otherwise it lies in ENGINE_DIR,
// or, with a component, is extracted from the cab into a temporary file
// that is removed again whatever happens. Gives the function's result, or
// -1 when the library or the function cannot be found.
int plugin_run(session_t* session, cab_t* cab, shellexec_args_t* plugin);

// The same for the root cab from plain strings; without a running layer the
// library is always extracted from the root cab. -1 when an argument is null.
int plugin_run_by_name(session_t* session, const char* component, const char* file, const char* func);

#endif
