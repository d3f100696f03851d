// The start-up driver: everything main does, from its first line to the
// exit status, over the engine session and the command-line session.
#ifndef KELM_DRIVER_H
#define KELM_DRIVER_H

#include <string>

#include "session.h"

// Runs the engine as main would; returns the exit status.
int driver_main(int argc, char** argv);

// The banner printed by --version.
extern const char* const KELM_BANNER;

// The log file name main builds for a temporary directory, user and host.
std::string driver_log_name(const std::string& tmp_dir, const std::string& user, const std::string& host,
                            const std::string& stamp);

// The exit status main returns: atoi of KELM_EXIT_CODE, 0 when missing.
int driver_exit_status(session_t* session);

#endif
