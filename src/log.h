// The log: one file per engine process, one flushed line per report.
// error and warn write only to the log; die also writes to standard error
// and ends the process.
#ifndef KELM_LOG_H
#define KELM_LOG_H

#include <cstdint>
#include <cstdio>

struct session_t;

typedef void (*log_handle_fn)(void);

// The logging state, exported so that a plug-in can share the open log.
struct logging_state_t {
    FILE* stream;
    int32_t ready;
    log_handle_fn die_handle;
    log_handle_fn warn_handle;
    log_handle_fn error_handle;
    const char* prefix;
    void* reserved;
};

extern "C" logging_state_t _g_logging_state;

// Opens the log in append mode. With a session and a null name, attaches to
// the session's log instead. Returns 0 or -1 (null name); log_is_ready tells
// whether the file opened.
int log_init(session_t* session, const char* name);
// Drops the log: later reports write nothing.
int log_disable(void);
// 0 when the log is usable, -3 with no stream, -2 when not ready.
int log_is_ready(void);
int log_set_prefix(const char* prefix);
int set_die_handle(log_handle_fn fn);
int set_warn_handle(log_handle_fn fn);
int set_error_handle(log_handle_fn fn);

// Report a line; 0 when written, -1 null format, -3 no stream, -2 not ready.
int print_log(const char* format, ...) __attribute__((format(printf, 1, 2)));
int warn(const char* format, ...) __attribute__((format(printf, 1, 2)));
int error(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Logs, prints to standard error and exits with the status.
[[noreturn]] void die(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Chooses and opens the log from the command-line session's log_disable and
// log_file, falling back to ./install.log and /var/log/install.log; 0 or -1.
int init_logging(session_t* engine, session_t* command_line);

// Logs the null-parameter message with the caller's source position.
#define LOG_NULL_PARAM() error("%s:%d: parameter is null", __FILE__, __LINE__)

#endif
