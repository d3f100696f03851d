// The session record's named slots, and the interrupt prompt.
#include "session.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "string_table.h"

sigjmp_buf position;
volatile int position_is_set = 0;

session_t::~session_t()
{
    tsd.products.clear();
    env.clear();
    free(actions);
    sequence_release_all(this);
    // The root cab lives as long as the process; releasing it here keeps
    // leak checkers quiet at the very end.
    store_release(&cab);
    string_table_free(this);
}

int session_init_cdata(session_t* session)
{
    if (!session) {
        error("session_init_data: session is null");
        return -1;
    }
    print_log("session_init_cdata: started");
    for (auto& slot : session->cdata) {
        slot.data = nullptr;
        slot.name = nullptr;
        slot.used = 0;
    }
    print_log("session_init_cdata: finished with %d slots", KELM_CDATA_SLOTS);
    return 0;
}

int session_add_cdata(session_t* session, void* data, const char* id)
{
    if (!session) {
        error("session_add_data: session is null");
        return -1;
    }
    if (!id) {
        error("session_add_cdata: cdata id is NULL");
        return -1;
    }
    print_log("session_add_cdata: add cdata %s", id);
    for (int i = 0; i < KELM_CDATA_SLOTS; i++) {
        cdata_slot_t& slot = session->cdata[i];
        if (slot.used && strcmp(slot.name, id) != 0)
            continue;
        slot.data = data;
        slot.name = strdup(id);
        slot.used = 1;
        print_log("session_add_cdata: cdata is added into slot %d", i);
        return 0;
    }
    error("session_add_cdata: cdata storage is full");
    return -1;
}

void* session_get_cdata(session_t* session, const char* id)
{
    if (!session) {
        error("session_get_data: session is null");
        return nullptr;
    }
    if (!id) {
        error("session_get_cdata: cdata id is NULL");
        return nullptr;
    }
    print_log("session_get_cdata: get cdata %s", id);
    for (auto& slot : session->cdata) {
        if (slot.used && !strcmp(slot.name, id)) {
            print_log("session_get_cdata: cdata %s is found", id);
            return slot.data;
        }
    }
    error("session_get_cdata: cdata is not found");
    return nullptr;
}

int session_delete_cdata(session_t* session, const char* id)
{
    if (!session) {
        error("session_delete_data: session is null");
        return -1;
    }
    if (!id) {
        error("session_delete_cdata: cdata id is NULL");
        return -1;
    }
    print_log("session_delete_cdata: delete cdata %s", id);
    for (auto& slot : session->cdata) {
        if (slot.used && !strcmp(slot.name, id)) {
            print_log("session_delete_cdata: cdata %s is found", id);
            free(slot.name);
            slot.name = nullptr;
            slot.data = nullptr;
            slot.used = 0;
        }
    }
    // Existing packages rely on this operation always reporting failure.
    error("session_delete_cdata: cdata is not found");
    return -1;
}

bool is_gui_mode(session_t* session)
{
    return env_get_string(session, "gui") == "1";
}

// Reads one answer line; returns false at the end of input.
static bool sigint_read_answer(char* buffer, size_t size)
{
    memset(buffer, 0, size);
    size_t stored = 0;
    while (stored < size - 1) {
        char c;
        ssize_t got = read(STDIN_FILENO, &c, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return stored > 0;
        if (c == '\n')
            break;
        buffer[stored++] = c;
    }
    return true;
}

void sigint_handler(int signal)
{
    print_log("sigint_handler: %d signot has been got", signal);
    const size_t size = 4096;
    char* answer = (char*)malloc(size + 1);
    if (!answer)
        die(-1, "Internal fatal error: memory allocation failed");
    for (;;) {
        printf("\nInterrupt install process?(Yes/No)[No]: ");
        fflush(stdout);
        if (!sigint_read_answer(answer, size + 1)) {
            print_log("sigint_handler: end of input at the interrupt prompt, exiting");
            exit(4);
        }
        if (!strcasecmp(answer, "yes"))
            exit(4);
        if (!*answer || !strcasecmp(answer, "no"))
            break;
        printf("Incorrect input, please try again\n");
    }
    free(answer);
    if (position_is_set)
        siglongjmp(position, 1);
    // No dialog has been shown yet: there is nothing to return to but the
    // interrupted code itself.
}

void session_install_sigint(void)
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = sigint_handler;
    sigfillset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGINT, &action, nullptr);
}
