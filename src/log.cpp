// The engine's log and its four reporting calls.
#include "log.h"

#include <cstdarg>
#include <cstdlib>
#include <ctime>

#include "env.h"
#include "session.h"

extern "C" {
logging_state_t _g_logging_state = {nullptr, 0, nullptr, nullptr, nullptr, "", nullptr};
}

static void log_reset(void)
{
    _g_logging_state.stream = nullptr;
    _g_logging_state.ready = 0;
    _g_logging_state.die_handle = nullptr;
    _g_logging_state.warn_handle = nullptr;
    _g_logging_state.error_handle = nullptr;
    _g_logging_state.prefix = "";
}

int log_init(session_t* session, const char* name)
{
    // A plug-in with its own copy of the state shares the engine's open log.
    if (session && !name && !_g_logging_state.stream) {
        if (session->log_state)
            _g_logging_state = *session->log_state;
        return 0;
    }
    log_reset();
    if (!name) {
        fputs("ERROR: log name is NULL\n", stderr);
        return -1;
    }
    FILE* stream = fopen(name, "ab");
    if (!stream) {
        fprintf(stderr, "Can't open %s\n", name);
    } else {
        _g_logging_state.stream = stream;
        _g_logging_state.ready = 1;
    }
    if (session)
        session->log_state = &_g_logging_state;
    return 0;
}

int log_disable(void)
{
    log_reset();
    return 0;
}

int log_is_ready(void)
{
    if (!_g_logging_state.stream)
        return -3;
    if (!_g_logging_state.ready)
        return -2;
    return 0;
}

int log_set_prefix(const char* prefix)
{
    if (!prefix)
        return -1;
    _g_logging_state.prefix = prefix;
    return 0;
}

int set_die_handle(log_handle_fn fn)
{
    if (!fn)
        return -1;
    _g_logging_state.die_handle = fn;
    return 0;
}

int set_warn_handle(log_handle_fn fn)
{
    if (!fn)
        return -1;
    _g_logging_state.warn_handle = fn;
    return 0;
}

int set_error_handle(log_handle_fn fn)
{
    if (!fn)
        return -1;
    _g_logging_state.error_handle = fn;
    return 0;
}

static int log_write(const char* level, const char* format, va_list args)
{
    if (!format)
        return -1;
    int state = log_is_ready();
    if (state)
        return state;
    FILE* out = _g_logging_state.stream;
    fprintf(out, "%ld - %s", (long)time(nullptr), level);
    fprintf(out, "%s: ", _g_logging_state.prefix ? _g_logging_state.prefix : "");
    vfprintf(out, format, args);
    fputc('\n', out);
    fflush(out);
    return 0;
}

int print_log(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int rc = log_write("", format, args);
    va_end(args);
    return rc;
}

int warn(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int rc = log_write("WARN: ", format, args);
    va_end(args);
    if (rc == 0 && _g_logging_state.warn_handle)
        _g_logging_state.warn_handle();
    return rc;
}

int error(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int rc = log_write("ERROR: ", format, args);
    va_end(args);
    if (rc == 0 && _g_logging_state.error_handle)
        _g_logging_state.error_handle();
    return rc;
}

void die(int status, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    if (log_write("ERROR: ", format, args) == 0 && _g_logging_state.error_handle)
        _g_logging_state.error_handle();
    if (format) {
        vfprintf(stderr, format, copy);
        fputc('\n', stderr);
        fflush(stderr);
    }
    va_end(copy);
    va_end(args);
    if (_g_logging_state.die_handle)
        _g_logging_state.die_handle();
    exit(status);
}

int init_logging(session_t* engine, session_t* command_line)
{
    if (!engine || !command_line)
        return -1;
    if (env_exists(command_line, "log_disable")) {
        log_disable();
        return 0;
    }
    if (env_exists(command_line, "log_file")) {
        log_init(engine, env_get_string(command_line, "log_file").c_str());
        if (log_is_ready() == 0)
            return 0;
    }
    static const char* const fallbacks[] = {"./install.log", "/var/log/install.log"};
    for (const char* name : fallbacks) {
        log_init(engine, name);
        if (log_is_ready() == 0) {
            env_set_string(engine, "log_file", name);
            return 0;
        }
    }
    return -1;
}
