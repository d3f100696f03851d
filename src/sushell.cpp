// Elevated execution through su or sudo.
#include "sushell.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/select.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "env.h"
#include "log.h"
#include "utils.h"

#define SUSHELL_DEFAULT_SU "/bin/su"
#define SUSHELL_PROMPT_SIZE 128
#define SUSHELL_MARKER_POLLS 2000
#define SUSHELL_FORKPTY_ROUNDS 512
#define SUSHELL_FORKPTY_PASSWORD_SIZE 64
#define SUSHELL_SELECT_NS 10000

static std::string su_program = SUSHELL_DEFAULT_SU;

void sushell_set_su_program(const char* path)
{
    su_program = path ? path : SUSHELL_DEFAULT_SU;
}

static void sushell_sleep_us(long usec)
{
    struct timespec left = {usec / 1000000, (usec % 1000000) * 1000};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

// A wait status as a shell would report it.
static int sushell_exit_status(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 1;
}

static void sushell_write_all(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t done = write(fd, data, size);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return;
        data += done;
        size -= done;
    }
}

// Reads whatever the terminal holds without waiting, and forwards it to
// out, or drops it when out is -1.
static void sushell_drain(int fd, int out)
{
    char buffer[1024];
    struct pollfd ready = {fd, POLLIN, 0};
    while (poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN)) {
        ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0)
            return;
        if (out >= 0)
            sushell_write_all(out, buffer, got);
    }
}

int wait_for_prompt(int fd, char* prompt)
{
    char* buffer = (char*)malloc(SUSHELL_PROMPT_SIZE);
    if (!buffer)
        return -1;
    struct pollfd ready = {fd, POLLIN | POLLPRI, 0};
    int events;
    do
        events = poll(&ready, 1, -1);
    while (events == -1 && errno == EINTR);
    ssize_t got = events > 0 ? read(fd, buffer, SUSHELL_PROMPT_SIZE) : -1;
    int found = got > 0 && prompt && memmem(buffer, got, prompt, strlen(prompt)) ? 0 : 1;
    free(buffer);
    return found;
}

int sudo_execute_command(const char* password, const char* command)
{
    print_log("sudo_execute_command: started");
    if (!password || !command) {
        LOG_NULL_PARAM();
        return 1;
    }
    char* file_name = strdup("/tmp/tempfile.XXXXXXXXXX");
    if (!file_name) {
        error("sudo_execute_command: cannot create pwd_file_name.");
        return 1;
    }
    // mkstemp makes the file readable by its owner alone.
    int fd = mkstemp(file_name);
    if (fd < 0) {
        error("sudo_execute_command: cannot generate password file name.");
        free(file_name);
        return 1;
    }
    FILE* file = fdopen(fd, "w");
    if (!file) {
        error("sudo_execute_command: cannot open password file '%s'.", file_name);
        close(fd);
        unlink(file_name);
        free(file_name);
        return 1;
    }
    fprintf(file, "%s\n", password);
    fclose(file);

    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        error("sudo_execute_command: cannot create a process");
        unlink(file_name);
        free(file_name);
        return 1;
    }
    if (pid == 0) {
        std::string shell_command = std::string("cat '") + file_name + "' | sudo -S " + command;
        int result = system(shell_command.c_str());
        result = result == -1 ? 1 : sushell_exit_status(result);
        print_log("sudo_execute_command: child process finished command with result %d", result);
        _exit(result);
    }

    sushell_sleep_us(25000);
    unlink(file_name);
    free(file_name);
    print_log("sudo_execute_command: parent process waiting for child");
    int status = 0;
    pid_t reaped;
    while ((reaped = waitpid(pid, &status, WNOHANG)) == 0 || (reaped == -1 && errno == EINTR))
        sushell_sleep_us(100);
    int result = reaped == pid ? sushell_exit_status(status) : 1;
    print_log("sudo_execute_command: child process exited with status %d", result);
    return result;
}

int su_execute_command_forkpty(const char* login, const char* password, const char* command)
{
    print_log("su_execute_command_forkpty: started");
    if (!login || !password || !command) {
        LOG_NULL_PARAM();
        return 1;
    }
    const char* argv[] = {su_program.c_str(), "-", login, "-c", command, nullptr};
    int master = -1;
    fflush(nullptr);
    pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid < 0) {
        print_log("su_execute_command_forkpty: can't create new process.");
        return 1;
    }
    if (pid == 0) {
        execv(argv[0], (char* const*)argv);
        print_log("su_execute_command_forkpty: can't create new terminal");
        _exit(1);
    }

    // Any output at all counts as the prompt.
    const struct timespec timeout = {0, SUSHELL_SELECT_NS};
    bool prompted = false;
    for (int round = 0; round < SUSHELL_FORKPTY_ROUNDS && !prompted; round++) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(master, &readable);
        int ready = pselect(master + 1, &readable, nullptr, nullptr, &timeout, nullptr);
        if (ready < 0) {
            print_log("su_execute_command_forkpty: can't select terminal descriptor.");
            close(master);
            return 1;
        }
        if (ready > 0 && FD_ISSET(master, &readable)) {
            char discard[1023];
            if (read(master, discard, sizeof discard) < 0) {
            }
            prompted = true;
            break;
        }
        sushell_sleep_us(1000);
    }
    if (!prompted) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        print_log("su_execute_command_forkpty: can't read su comamnd prompt.");
        close(master);
        return 1;
    }

    // The password and its newline in 63 characters at most: a longer
    // password is cut so that the line still ends.
    char line[SUSHELL_FORKPTY_PASSWORD_SIZE];
    snprintf(line, sizeof line, "%.*s\n", SUSHELL_FORKPTY_PASSWORD_SIZE - 2, password);
    sushell_write_all(master, line, strlen(line));

    // Relay between the user's terminal and su's until su ends.
    int status = 0;
    bool input_open = true;
    for (;;) {
        pid_t reaped = waitpid(pid, &status, WNOHANG);
        if (reaped == pid)
            break;
        if (reaped == -1 && errno != EINTR) {
            status = 1 << 8;
            break;
        }
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(master, &readable);
        if (input_open)
            FD_SET(0, &readable);
        int ready = pselect(master + 1, &readable, nullptr, nullptr, &timeout, nullptr);
        if (ready < 0) {
            print_log("su_execute_command_forkpty: can't select terminal descriptor.");
            close(master);
            return 1;
        }
        if (ready > 0 && FD_ISSET(master, &readable)) {
            char buffer[1023];
            ssize_t got = read(master, buffer, sizeof buffer);
            if (got > 0)
                sushell_write_all(1, buffer, got);
        } else if (ready > 0 && input_open && FD_ISSET(0, &readable)) {
            char buffer[1024];
            ssize_t got = read(0, buffer, sizeof buffer);
            if (got > 0)
                sushell_write_all(master, buffer, got);
            else if (got == 0)
                input_open = false; // end of input: stop watching it
        }
        sushell_sleep_us(100);
    }
    sushell_drain(master, 1);
    close(master);
    int result = sushell_exit_status(status);
    print_log("su_execute_command_forkpty: child process exited with status %d", result);
    return result;
}

int su_execute_command(session_t* session, const char* login, const char* password, const char* command)
{
    print_log("su_execute_command: started");
    if (!session || !login || !password || !command) {
        LOG_NULL_PARAM();
        return 1;
    }
    const char* argv[] = {su_program.c_str(), "-", login, "-c", command, nullptr};

    int master = open("/dev/ptmx", O_RDWR | O_NOCTTY);
    if (master < 0) {
        print_log("su_execute_command: opening master device failed");
        return 1;
    }
    char slave_name[64];
    if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, slave_name, sizeof slave_name) != 0) {
        print_log("su_execute_commandy: ptsname failed");
        close(master);
        return 1;
    }
    print_log("su_execute_command: opening slave device: %s", slave_name);
    // O_NOCTTY: the engine must not adopt su's terminal as its own.
    int slave = open(slave_name, O_RDWR | O_NOCTTY);
    if (slave < 0) {
        print_log("su_execute_command: opening slave device failed");
        close(master);
        return 1;
    }
    print_log("su_execute_command: opened slave device successfully");

    // The child shares our memory until execv; it only tells whether that
    // failed, and the parent reports it.
    volatile int exec_failed = 0;
    fflush(nullptr);
    pid_t pid = vfork();
    if (pid < 0) {
        print_log("su_execute_command: vfork failed");
        close(slave);
        close(master);
        return 1;
    }
    if (pid == 0) {
        close(master);
        dup2(slave, 0);
        dup2(slave, 1);
        dup2(slave, 2);
        if (slave > 2)
            close(slave);
        execv(argv[0], (char* const*)argv);
        exec_failed = 1;
        _exit(1);
    }
    // Only the child holds the terminal now, so its end shows on the master.
    close(slave);
    if (exec_failed) {
        print_log("su_execute_command: execv failed");
        waitpid(pid, nullptr, 0);
        close(master);
        return 1;
    }

    print_log("su_execute_command: waiting for password prompt");
    char prompt[] = "Password:";
    if (wait_for_prompt(master, prompt) == 0)
        print_log("su_execute_command: got prompt successfully");
    else
        print_log("su_execute_command: failed to get prompt but continuing...");
    print_log("su_execute_command: sending password");
    std::string line = std::string(password) + "\n";
    sushell_write_all(master, line.data(), line.size());
    print_log("su_execute_command: waiting for child to finish");

    std::string marker = env_get_string(session, "tmp_dir") + "/" SUSHELL_ROOT_MARKER;
    bool unlimited = false;
    for (int polls = 0;; polls++) {
        int status = 0;
        pid_t reaped = waitpid(pid, &status, WNOHANG);
        if (reaped == pid || (reaped == -1 && errno != EINTR)) {
            sushell_drain(master, -1);
            close(master);
            int result = reaped == pid ? sushell_exit_status(status) : 1;
            print_log("su_execute_command: child process exited with status %d", result);
            return result;
        }
        // Nobody shows su's output here; reading it keeps the child from
        // blocking on a full terminal.
        sushell_drain(master, -1);
        if (!unlimited && polls == SUSHELL_MARKER_POLLS) {
            if (!exists(marker.c_str()))
                return su_execute_command_forkpty(login, password, command);
            unlimited = true;
        }
        sushell_sleep_us(1000);
    }
}

int shell_execute_command(session_t* session)
{
    print_log("shell_execute_command: start");
    if (!session) {
        LOG_NULL_PARAM();
        return 1;
    }
    if (!env_exists(session, "SU_COMMAND")) {
        print_log("shell_execute_command: command is not specified");
        env_set_string(session, "AUTH_STATUS", "AUTH_FAILURE");
        return 1;
    }
    std::string login = env_get_string(session, "SU_LOGIN");
    std::string password = env_get_string(session, "__HIDE__SU_PASSWORD");
    std::string command = expand_string(session, env_get_string(session, "SU_COMMAND"));
    std::string temp_folder = env_get_string(session, "TEMP_FOLDER");
    if (!env_exists(session, "SU_LOGIN") || !env_exists(session, "__HIDE__SU_PASSWORD") ||
        !env_exists(session, "TEMP_FOLDER")) {
        print_log("shell_execute_command: invalid arguments %s %s", login.c_str(), command.c_str());
        env_set_string(session, "AUTH_STATUS", "AUTH_FAILURE");
        return 1;
    }

    print_log("shell_execute_command: command: %s", command.c_str());
    int status = login.empty() ? sudo_execute_command(password.c_str(), command.c_str())
                               : su_execute_command(session, login.c_str(), password.c_str(), command.c_str());

    if (status == 0 || status == 2 || status == 3 || status == 4 || status == 127) {
        env_set_string(session, "KELM_EXIT_CODE", std::to_string(status));
        env_set_string(session, "AUTH_STATUS", "AUTH_SUCCESS");
    } else if (!is_dir(temp_folder.c_str())) {
        // The child removed the temporary folder, so it ran to its end.
        print_log("shell_execute_command: exit code is bad (%d) but temporary folder is removed", status);
        status = 0;
        env_set_string(session, "AUTH_STATUS", "AUTH_SUCCESS");
    } else {
        env_set_string(session, "WINDOW_VISIBILITY", "VISIBLE");
        env_set_string(session, "AUTH_STATUS", "AUTH_FAILURE");
    }
    return status;
}
