// Running a command as another user: through su on a pseudo-terminal, fed
// the password at its prompt, or through sudo reading the password from a
// short-lived file. This is how the engine starts its elevated second self.
#ifndef KELM_SUSHELL_H
#define KELM_SUSHELL_H

#include "session.h"

// The marker the elevated child's launcher makes under tmp_dir once it runs.
#define SUSHELL_ROOT_MARKER "orvan.kelm.root.running.marker"

// Runs SU_COMMAND (expanded) as SU_LOGIN with __HIDE__SU_PASSWORD, through
// sudo when the login is empty. Sets AUTH_STATUS, and KELM_EXIT_CODE for the
// statuses 0, 2, 3, 4 and 127; a failure while TEMP_FOLDER still stands
// sets WINDOW_VISIBILITY to "VISIBLE" so that the sequence asks again.
// Returns the command's status after that rule, 1 when it could not start.
int shell_execute_command(session_t* session);

// Runs "su - login -c command" on a pseudo-terminal opened by hand, answers
// its prompt with the password and waits for it. When after about two
// seconds the child has neither ended nor made the root marker under
// tmp_dir, it is left alone and su_execute_command_forkpty runs instead.
// Returns the exit status, or 1 when su could not be started.
int su_execute_command(session_t* session, const char* login, const char* password, const char* command);

// The second attempt: su on a terminal from forkpty, given the password
// (cut to 62 characters and a newline) once it prints anything, and then
// relayed to and from the engine's own standard input and output until it
// ends. Returns the exit status, or 1.
int su_execute_command_forkpty(const char* login, const char* password, const char* command);

// Runs "sudo -S command" with the password piped from a file that exists
// for 25 ms only; returns the exit status, or 1.
int sudo_execute_command(const char* password, const char* command);

// Waits for output on fd, reads it once, and looks for the prompt in it:
// 0 when found, 1 when not, -1 when memory is short.
int wait_for_prompt(int fd, char* prompt);

// Replaces the su program of both attempts (for tests); null restores /bin/su.
void sushell_set_su_program(const char* path);

#endif
