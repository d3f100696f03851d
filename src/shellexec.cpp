// Shell functions of a package, with properties passed in and back.
#include "shellexec.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <unordered_map>

#include "env.h"
#include "log.h"
#include "seq.h"

#define SHELLEXEC_INIT_FILE "shellexec_init"
#define SHELLEXEC_OUTPUT_FILE "shellexec_output"
#define SHELLEXEC_COMMAND_SIZE 8192
// Bytes held for a name and a value read back, each with its end byte.
#define SHELLEXEC_NAME_SIZE 1024
#define SHELLEXEC_VALUE_SIZE 4096
#define SHELLEXEC_END_MARK '\xff'

shellexec_var_t* shellexec_var_list_new(void)
{
    return (shellexec_var_t*)calloc(1, sizeof(shellexec_var_t));
}

shellexec_var_t* shellexec_var_append(shellexec_var_t* after, const char* name, const char* value)
{
    if (!after || !name || !value)
        return nullptr;
    shellexec_var_t* entry = (shellexec_var_t*)calloc(1, sizeof(shellexec_var_t));
    if (!entry)
        return nullptr;
    entry->name = strdup(name);
    entry->value = strdup(value);
    if (!entry->name || !entry->value) {
        free(entry->name);
        free(entry->value);
        free(entry);
        return nullptr;
    }
    entry->next = after->next;
    after->next = entry;
    return entry;
}

void shellexec_var_list_free(shellexec_var_t* head)
{
    while (head) {
        shellexec_var_t* next = head->next;
        free(head->name);
        free(head->value);
        free(head);
        head = next;
    }
}

// Where the fixed-name files go: TEMP_FOLDER, or /tmp without one.
static std::string shellexec_temp_dir(session_t* session)
{
    std::string dir = env_get_string(session, "TEMP_FOLDER");
    return dir.empty() ? "/tmp" : dir;
}

// A running layer unpacked its files into a directory named after it.
static std::string shellexec_layer_script_path(const std::string& temp_dir, const char* layer_id, const char* file)
{
    return temp_dir + "/" + (layer_id ? layer_id : "") + "/" + file;
}

// A script of a component, with no layer running, comes out of the cab
// into a fresh file; its path. A failure to create the file is only logged:
// the extraction then makes the file under the template's name, or the
// shell reports the missing script.
static std::string shellexec_extract_script(session_t* session, cab_t* cab, const char* component, const char* file,
                                            const std::string& temp_dir)
{
    std::string path = temp_dir + "/shellexec_script.XXXXXX";
    int fd = mkstemp(path.data());
    if (fd < 0)
        print_log("shellexec_execute: unable to create temporary file '%s'", path.c_str());
    else
        close(fd);
    store_file_extract(session, cab, component, file, path.c_str());
    return path;
}

static void shellexec_sleep_us(long usec)
{
    struct timespec left = {usec / 1000000, (usec % 1000000) * 1000};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

int _shellexec_create_envlist_file(const char* path, shellexec_var_t* list)
{
    FILE* file = path ? fopen(path, "w") : nullptr;
    if (!file) {
        print_log("_shellexec_create_envlist_file: unable to write an arguments list to file");
        return -1;
    }
    for (shellexec_var_t* entry = list ? list->next : nullptr; entry; entry = entry->next) {
        fputs("LI_", file);
        fputs(entry->name, file);
        fputs("=\"", file);
        for (const char* c = entry->value; *c; c++) {
            if (*c == '\\')
                fputc('\\', file);
            fputc(*c, file);
        }
        fputs("\"\n", file);
    }
    int failed = ferror(file);
    if (fclose(file) != 0 || failed) {
        print_log("_shellexec_create_envlist_file: unable to write an arguments list to file");
        return -1;
    }
    return 0;
}

// The forked child: writes the init file and becomes the shell. It never
// returns into the engine, whatever fails.
[[noreturn]] static void shellexec_run_child(const std::string& init_file, const char* script, const std::string& name,
                                             const char* shell, shellexec_var_t* list, const char* output,
                                             const std::string& engine_dir, const std::string& engine_binary)
{
    if (_shellexec_create_envlist_file(init_file.c_str(), list) != 0) {
        print_log("_shellexec_execute_command: unable to get init file - %s\n", strerror(errno));
        _exit(1);
    }
    char command[SHELLEXEC_COMMAND_SIZE];
    snprintf(command, sizeof command, ". %s; . %s; %s; \"%s/%s\" --__dumpenv__ > %s", init_file.c_str(), script,
             name.c_str(), engine_dir.c_str(), engine_binary.c_str(), output);
    execlp(shell, shell, "-c", command, (char*)nullptr);
    print_log("_shellexec_execute_command: unable to create a process - %s", strerror(errno));
    _exit(127);
}

// Waits for the child without a time limit; -1 when a signal ended it.
static int shellexec_wait_regular(pid_t pid)
{
    int status = 0;
    bool have_status = false;
    for (;;) {
        int got = 0;
        pid_t reaped = waitpid(pid, &got, 0);
        int wait_errno = errno;
        if (reaped == pid) {
            status = got;
            have_status = true;
        }
        errno = 0;
        int killed = kill(pid, 0);
        int kill_errno = errno;
        print_log("_shellexec_execute_command: regular waiting, querying process %d, kill returned %d. errno %d", pid,
                  killed, kill_errno);
        if (killed == -1 || kill_errno == ESRCH)
            break;
        // Not our child any longer (reaped elsewhere): nothing left to wait for.
        if (reaped == -1 && wait_errno == ECHILD)
            break;
    }
    if (have_status && WIFSIGNALED(status)) {
        print_log("_shellexec_execute_command: process exited with an error status %d", status);
        return -1;
    }
    return 0;
}

// Polls the child every 100 ms for timeout seconds, then kills it.
static void shellexec_wait_limited(session_t* session, pid_t pid, double timeout)
{
    int rounds = (int)(timeout * 10);
    bool reaped = false;
    for (int round = 1; round <= rounds; round++) {
        shellexec_sleep_us(100000);
        // Once reaped, the number may already belong to another process:
        // never probe or signal it again.
        if (!reaped && waitpid(pid, nullptr, WNOHANG) == pid)
            reaped = true;
        errno = 0;
        int killed = reaped ? -1 : kill(pid, 0);
        int kill_errno = reaped ? ESRCH : errno;
        print_log("_shellexec_execute_command: second %d, querying process %d, kill returned %d. errno %d", round / 10,
                  pid, killed, kill_errno);
        if (killed == -1 && (kill_errno == ESRCH || kill_errno == EINTR)) {
            print_log("_shellexec_execute_command: process exited");
            return;
        }
    }
    print_log("_shellexec_execute_command: process hangs, killing...");
    kill(pid, SIGKILL);
    // SIGKILL takes a moment to land; give it a few polls so that no zombie
    // stays behind, without ever blocking on it.
    for (int poll = 0; poll < 100 && waitpid(pid, nullptr, WNOHANG) == 0; poll++)
        shellexec_sleep_us(1000);
    env_set_string(session, "KELM_SHELLEXEC_STATUS", "killed");
}

int _shellexec_execute_command(session_t* session, const char* script, const char* func, const char* shell,
                               shellexec_var_t* list, const char* output)
{
    print_log("_shellexec_execute_command: started");
    if (!session || !script || !list || !func || !shell || !output) {
        print_log("_shellexec_execute_command: invalide arguments");
        return -1;
    }

    std::string name = func;
    double timeout = 0;
    const char* colon = strchr(func, ':');
    if (colon) {
        name.assign(func, colon - func);
        if (colon[1]) {
            print_log("_shellexec_execute_command: applying timeout %s to function %s", colon + 1, name.c_str());
            timeout = atof(colon + 1);
        }
    }

    // Read before the fork: both processes need them, and a parent that
    // gave up here would leave its child unreaped.
    std::string engine_dir = env_get_string(session, "ENGINE_DIR");
    std::string engine_binary = env_get_string(session, "ENGINE_BINARY");
    if (engine_dir.empty() || engine_binary.empty()) {
        print_log("_shellexec_execute_command: unable to determine KELM location");
        return -1;
    }
    std::string init_file = shellexec_temp_dir(session) + "/" SHELLEXEC_INIT_FILE;

    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        print_log("_shellexec_execute_command: unable to allocate memory");
        return -1;
    }
    if (pid == 0)
        shellexec_run_child(init_file, script, name, shell, list, output, engine_dir, engine_binary);

    if (timeout == 0) {
        if (shellexec_wait_regular(pid) != 0)
            return -1;
    } else if (timeout > 0) {
        shellexec_wait_limited(session, pid, timeout);
    } else {
        // The function runs on in the background; nobody waits for it.
        long delay = (long)(-timeout * 1000000);
        print_log("_shellexec_execute_command: delayed kill activated: %d", (int)delay);
        shellexec_sleep_us(delay);
        return 0;
    }
    print_log("_shellexec_execute_command: finished");
    return 0;
}

int _shellexec_parse_envlist_buffer(session_t* session, const char* data, size_t size, shellexec_var_t* list)
{
    // The walk ends at the first end-mark byte, as if one stood after the data.
    size_t end = 0;
    while (end < size && data[end] != SHELLEXEC_END_MARK)
        end++;
    size_t first = 0;
    while (first < end && data[first] != '\0')
        first++;
    if (size == 0 || first < 3) {
        print_log("_shellexec_parse_envlist: invalid arguments");
        return 1;
    }

    // First entry of a name wins, as a walk of the list would find it.
    std::unordered_map<std::string, const char*> passed;
    for (shellexec_var_t* entry = list ? list->next : nullptr; entry; entry = entry->next)
        passed.emplace(entry->name, entry->value);

    char name[SHELLEXEC_NAME_SIZE];
    char value[SHELLEXEC_VALUE_SIZE];
    size_t name_len = 0, value_len = 0;
    bool in_value = false;
    int result = 0;
    for (size_t i = 0; i < end; i++) {
        char c = data[i];
        if (c != '\0') {
            if (!in_value && c == '=')
                in_value = true;
            else if (!in_value && name_len < sizeof name - 1)
                name[name_len++] = c;
            else if (in_value && value_len < sizeof value - 1)
                value[value_len++] = c;
            continue;
        }
        name[name_len] = '\0';
        value[value_len] = '\0';
        if (name_len > 3 && strncmp(name, "LI_", 3) == 0) {
            const char* property = name + 3;
            auto known = passed.find(property);
            if ((known == passed.end() || strcmp(known->second, value) != 0) &&
                env_set_string(session, property, value) != 0)
                result = -1;
        }
        name_len = value_len = 0;
        in_value = false;
    }
    print_log("_shellexec_parse_envlist: finished");
    return result;
}

int _shellexec_parse_envlist(session_t* session, const char* path, shellexec_var_t* list)
{
    print_log("_shellexec_parse_envlist: started");
    FILE* file = path ? fopen(path, "rb") : nullptr;
    if (!file) {
        print_log("_shellexec_parse_envlist: unable to read an arguments list from file");
        return 1;
    }
    std::string data;
    char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0)
        data.append(chunk, got);
    fclose(file);
    return _shellexec_parse_envlist_buffer(session, data.data(), data.size(), list);
}

int _shellexec_execute_script(session_t* session, const char* script, const char* func, const char* shell,
                              shellexec_var_t* list, const char* output)
{
    if (_shellexec_execute_command(session, script, func, shell, list, output) == -1) {
        print_log("_shellexec_execute_script: unable to execute command");
        return 1;
    }
    print_log("_shellexec_execute_script: process exited normally, reading env from %s", output);
    int parsed = _shellexec_parse_envlist(session, output, list);
    if (parsed == 1) {
        print_log("_shellexec_execute_script: unable to read output file");
        return 1;
    }
    return parsed;
}

// A property's value as the shell gets it: expanded, and with every double
// quote but a leading one made single, so that the quoting of the init file
// holds.
static char* shellexec_shell_value(session_t* session, const std::string& stored)
{
    char* value = expand_operand(session, stored.c_str());
    if (!value)
        value = strdup(stored.c_str());
    if (!value)
        return nullptr;
    for (char* c = value + 1; *value && *c; c++)
        if (*c == '"')
            *c = '\'';
    return value;
}

// Appends the map's properties that pass the filter; the new tail, or null
// when memory ran out.
static shellexec_var_t* shellexec_add_map(session_t* session, const env_map_t& map, const char* filter,
                                          shellexec_var_t* tail)
{
    for (const auto& property : map) {
        if (filter && !strstr(filter, property.first.c_str()))
            continue;
        char* value = shellexec_shell_value(session, property.second);
        if (!value) {
            print_log("shellexec_execute: unsable to allocate a memory for variable");
            return nullptr;
        }
        shellexec_var_t* entry = shellexec_var_append(tail, property.first.c_str(), value);
        if (!entry) {
            print_log("shellexec_execute: unable to allocate a memory for variable entry name:[%s], value:[%s]",
                      property.first.c_str(), env_is_hidden_name(property.first) ? "[HIDDEN]" : value);
            free(value);
            return nullptr;
        }
        free(value);
        tail = entry;
    }
    return tail;
}

int shellexec_execute(session_t* session, cab_t* cab, shellexec_args_t* args)
{
    shellexec_var_t* list = shellexec_var_list_new();
    if (!list) {
        error("shellexec_execute: allocation of list failed.");
        return 1;
    }
    if (!session || !cab || !args) {
        print_log("shellexec_execute: invalid arguments");
        shellexec_var_list_free(list);
        return 1;
    }
    print_log("shellexec_execute: started");
    env_set_string(session, "KELM_SHELLEXEC_STATUS", "");

    std::string temp_dir = shellexec_temp_dir(session);
    std::string script;
    if (args->file) {
        if (!args->component)
            script = env_get_string(session, "ENGINE_DIR") + "/" + args->file;
        else if (session->scope)
            script = shellexec_layer_script_path(temp_dir, session->scope->id, args->file);
        else
            script = shellexec_extract_script(session, cab, args->component, args->file, temp_dir);
    }
    const char* func = args->func ? args->func : "(null)";
    print_log("shellexec_execute: shell script:[%s], function:[%s]", script.c_str(), func);
    print_log("shellexec_execute: start execution with following arguments: script:[%s], function:[%s], posix:[%d]",
              script.c_str(), func, args->posix);
    if (script.empty() || !args->func) {
        print_log("shellexec_execute: invalide arguments");
        shellexec_var_list_free(list);
        return 1;
    }

    // Only an empty vars filters, and then it lets nothing through.
    const char* filter = args->vars && !*args->vars ? args->vars : nullptr;
    const char* shell = args->posix == 1 ? "sh" : "bash";

    shellexec_var_t* tail = shellexec_add_map(session, session->env, filter, list);
    if (tail && session->scope)
        tail = shellexec_add_map(session, session->scope->env, filter, tail);
    if (!tail) {
        shellexec_var_list_free(list);
        return 1;
    }
    print_log("shellexec_execute: preperation successfully done");

    std::string output = temp_dir + "/" SHELLEXEC_OUTPUT_FILE;
    int status = _shellexec_execute_script(session, script.c_str(), args->func, shell, list, output.c_str());

    print_log("shellexec_execute: script execution finished with status: %d", status);
    shellexec_var_list_free(list);
    print_log("shellexec_execute: finish");
    return status;
}
