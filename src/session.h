// The session: the one record of engine state, first argument of nearly
// every engine function. The process keeps two: the engine session in which
// everything runs, and the command-line session that only collects options.
#ifndef KELM_SESSION_H
#define KELM_SESSION_H

#include <csetjmp>
#include <cstdint>
#include <map>
#include <string>

#include "store.h"
#include "tsd.h"

// A property map: names to values, iterated in byte order of the names.
typedef std::map<std::string, std::string> env_map_t;

struct seq_layer_t;
struct seq_item_t;
struct step_t;
struct action_t;
struct rpm_item_t;
struct nonrpm_item_t;
struct coex_rule_t;
struct prereq_def_t;
struct progress_t;
struct package_description;
struct document_t;

#define KELM_CDATA_SLOTS 1024

// A named opaque pointer parked in the session by a module.
struct cdata_slot_t {
    void* data;
    char* name;
    int32_t used;
};

struct session_t {
    env_map_t env;
    seq_layer_t* scope = nullptr;
    cab_t cab;
    struct {
        seq_item_t* seq = nullptr;
        seq_item_t* current = nullptr;
        step_t* steps = nullptr;
        int32_t count = 0;
        int32_t capacity = 0;
    } seqs;
    struct {
        nonrpm_item_t* p = nullptr;
        int32_t num = 0;
    } nonrpm;
    struct {
        rpm_item_t* p = nullptr;
        int32_t num = 0;
    } rpm;
    struct {
        coex_rule_t* p = nullptr;
        int32_t num = 0;
    } coex;
    struct {
        prereq_def_t* pkg_defs = nullptr;
        prereq_def_t* cmd_defs = nullptr;
        prereq_def_t* os_defs = nullptr;
        prereq_def_t* products = nullptr;
        char* supported_os_list_native = nullptr;
        char* supported_os_list_foreign = nullptr;
    } prereq;
    action_t* actions = nullptr;
    int32_t actions_last = -1;
    cdata_slot_t cdata[KELM_CDATA_SLOTS] = {};
    progress_t* progress = nullptr;
    struct package_description* package_description = nullptr;
    TSD tsd;
    struct logging_state_t* log_state = nullptr;
    // The string table: one parsed file, language and condition (or null)
    // per line of strings.ini, through index string_last.
    document_t* string_docs = nullptr;
    char** string_langs = nullptr;
    char** string_conds = nullptr;
    int32_t string_last = -1;

    session_t() = default;
    ~session_t();
    session_t(const session_t&) = delete;
    session_t& operator=(const session_t&) = delete;
};

// The return point of the interrupt handler: set at the head of every dialog.
extern sigjmp_buf position;
// 1 once position holds a context the handler may jump to.
extern volatile int position_is_set;

// Clears all named slots; 0, or -1 for a null session.
int session_init_cdata(session_t* session);
// Parks a pointer under an id, replacing one of the same id; 0 or -1.
int session_add_cdata(session_t* session, void* data, const char* id);
// The pointer parked under the id, or null.
void* session_get_cdata(session_t* session, const char* id);
// Clears every slot of the id; always reports "not found" and returns -1.
int session_delete_cdata(session_t* session, const char* id);
// True when the property gui equals "1".
bool is_gui_mode(session_t* session);

// Handler of SIGINT: asks whether to stop; leaves by a jump to position.
void sigint_handler(int signal);
// Installs sigint_handler with all signals in its mask and no flags.
void session_install_sigint(void);

#endif
