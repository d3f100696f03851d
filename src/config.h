// Configuration bootstrap: the properties every later step takes for
// granted (exit-status scheme, saved environment, engine paths, user,
// architecture, product.ini, attached cabs), and the string mode that hands
// properties to a shell script.
#ifndef KELM_CONFIG_H
#define KELM_CONFIG_H

#include <cstdio>
#include <string>

#include "session.h"

// The banner this unit publishes as ENGINE_VERSION.
extern const char* const KELM_ENGINE_VERSION;

// Fills the engine session; 0, -1, or the failing result of attaching cabs.
int init_configuration(session_t* session);
// Loads product.ini from the root cab's _internal_ component; 0 or -1.
int load_product_info(session_t* session);
// Parses product.ini text into properties; 0, or -1 on a line without a name.
int load_product_info_text(session_t* session, char* text, int size);
// Writes LI_ shell assignments for string_ids (or every property) to the
// file named by __get_string__, or standard output; 0 or -1.
int configuration_get_strings(session_t* session);
// Makes tmp_dir/install.XXXXXX (or under /tmp) and sets TEMP_FOLDER; 0 or -1.
int configuration_create_tempfolder(session_t* session);
// True when the real user id is 0.
bool user_is_root(session_t* session);
// Writes one LI_ record of the string mode.
int write_string_to_file(session_t* session, std::string name, std::string value, FILE* file);

#endif
