// The interpreter of one sequence document: behavior blocks, the action
// scan, next and back with the stack of visited dialogs, reserved action
// names and jumps into another sequence.
#include <cstdlib>
#include <cstring>
#include <string>

#include "cond.h"
#include "env.h"
#include "log.h"
#include "seq.h"
#include "seq_action.h"
#include "seq_run.h"
#include "store.h"
#include "utils.h"
#include "xml.h"

static const char* nz(const char* text)
{
    return text ? text : "(null)";
}

static bool is_named(const node_t* node, const char* name)
{
    return node->name && !strcmp(node->name, name);
}

int push(stack** top, const char* id)
{
    stack* entry = (stack*)malloc(sizeof(stack));
    char* copy = strdup(id ? id : "");
    if (!entry || !copy) {
        free(entry);
        free(copy);
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return -1;
    }
    entry->id = copy;
    entry->next = *top;
    *top = entry;
    return 1;
}

void pop(stack** top)
{
    if (!top || !*top)
        return;
    stack* entry = *top;
    *top = entry->next;
    free(entry->id);
    free(entry);
}

void print_seq_stack(stack* top)
{
    print_log("print_seq_stack: the seq stack are:");
    for (stack* entry = top; entry; entry = entry->next)
        print_log("print_seq_stack: %s", entry->id);
}

static void free_stack(stack** top)
{
    while (*top)
        pop(top);
}

// The mode as KELM_MODE tells it: 0 install (also for an empty or unknown
// value), 1 uninstall, 2 modify, 3 repair.
static int seq_kelm_mode(session_t* session)
{
    std::string mode = env_get_string(session, "KELM_MODE");
    if (mode == "uninstall")
        return 1;
    if (mode == "modify")
        return 2;
    if (mode == "repair")
        return 3;
    return 0;
}

// Keeps the stack of visited dialogs true when a next leads from the action
// cur (of the given type) to nxt: going forward from a dialog stores it,
// moving to the dialog on top takes it off again, and other actions are
// passed over, so that back always lands on a dialog.
static void seq_update_visited(session_t* session, stack** visited, const char* type, const std::string& cur,
                               const std::string& nxt)
{
    if (type && !strcmp(type, "dialog") && env_get_string(session, "SAVE_IN_VISITED") == "yes") {
        if (!*visited) {
            print_log("sequence_execute_document: back stack empty, stored %s dialog", cur.c_str());
            push(visited, cur.c_str());
            return;
        }
        std::string top = (*visited)->id;
        pop(visited);
        if (top == cur) {
            print_log("sequence_execute_document: dialog already stored, %s and %s", top.c_str(), cur.c_str());
            if (top != nxt) {
                print_log("sequence_execute_document: but since next dialog %s not the same - store it", nxt.c_str());
                push(visited, cur.c_str());
            }
        } else {
            print_log("sequence_execute_document: dialogs are different, %s and %s", top.c_str(), cur.c_str());
            push(visited, top.c_str());
            push(visited, cur.c_str());
        }
        return;
    }
    print_log("sequence_execute_document: next dialog is %s", nxt.c_str());
    if (!*visited)
        return;
    std::string top = (*visited)->id;
    pop(visited);
    if (top != nxt) {
        print_log("sequence_execute_document: next and prev dialog different, %s and %s", top.c_str(), nxt.c_str());
        push(visited, top.c_str());
    }
}

// What the walk over an executed action's next and back elements decided.
enum { WAY_NONE, WAY_RESTART, WAY_PREV };

// State of one document run.
struct doc_run_t {
    session_t* session;
    stack* visited = nullptr;
    std::string current;   // the action to run next
    std::string last;      // id of the last executed action
    bool executed = false; // whether any action was executed
    int next_shift = 0;    // next elements to pass over on re-entry
    int next_count = 0;    // next elements examined by the last scan
    char* pending_sub = nullptr;
    std::string failed_jump; // a jump that could not be loaded, not retried
};

// Walks the executed action's children for the first next or back that
// applies, and makes its target the current action.
static int seq_choose_way(doc_run_t* run, node_t* action)
{
    session_t* session = run->session;
    const char* type = xml_node_get_key(action, "type");
    int count = 0;
    for (int i = 0; i < action->childs_count; i++) {
        node_t* child = &action->childs[i];
        if (is_named(child, "next")) {
            char* handle = xml_node_get_key(child, "handle");
            char* condition = xml_node_get_key(child, "condition");
            std::string expanded = handle ? expand_string(session, handle) : "";
            bool applies = (!handle || expanded == env_get_string(session, "HANDLE")) &&
                           (!condition || cond_is_true(condition, session) == 1) && count >= run->next_shift;
            print_log("sequence_execute_document: detecting transition. Handle: %s, condition: %s, next_cur: %d, "
                      "next_shift: %d, act: %d",
                      handle ? expanded.c_str() : "(null)", nz(condition), count, run->next_shift, applies ? 1 : 0);
            count++;
            if (!applies)
                continue;
            run->next_count = count;
            char* call = xml_node_get_key(child, "call");
            std::string nxt = call ? expand_string(session, call) : "";
            run->next_shift = 0;
            run->pending_sub = xml_node_get_key(child, "sub");
            seq_update_visited(session, &run->visited, type, run->last, nxt);
            if (xml_node_get_key(child, "remove_from_visited")) {
                print_log("sequence_execute_document: remove %s dialog", run->visited ? run->visited->id : "(null)");
                pop(&run->visited);
            }
            run->current = nxt;
            return WAY_RESTART;
        }
        if (is_named(child, "back")) {
            char* condition = xml_node_get_key(child, "condition");
            if (condition && cond_is_true(condition, session) != 1)
                continue;
            print_log("sequence_execute_document: perform \"step_back\" action");
            if (!run->visited) {
                print_log("moving to previous module1");
                return WAY_PREV;
            }
            run->current = run->visited->id;
            pop(&run->visited);
            print_log("sequence_execute_document: next name is %s", run->current.c_str());
            return WAY_RESTART;
        }
    }
    run->next_count = count;
    return WAY_NONE;
}

// Grows the session's array of sequences by two slots; false when memory is
// short. Steps keep pointers to their sequence, so those are moved along.
static bool seq_grow_items(session_t* session)
{
    int capacity = session->seqs.capacity + SEQ_ITEMS_CHUNK;
    seq_item_t* old = session->seqs.seq;
    seq_item_t* grown = (seq_item_t*)realloc(old, capacity * sizeof(seq_item_t));
    if (!grown)
        return false;
    memset(grown + session->seqs.capacity, 0, SEQ_ITEMS_CHUNK * sizeof(seq_item_t));
    if (grown != old && old) {
        uintptr_t from = (uintptr_t)old, to = (uintptr_t)grown;
        auto moved = [&](seq_item_t* item) {
            uintptr_t at = (uintptr_t)item;
            if (at >= from && at < from + session->seqs.capacity * sizeof(seq_item_t))
                return (seq_item_t*)(to + (at - from));
            return item;
        };
        for (int i = 0; i < session->seqs.count; i++) {
            seq_item_t* item = &grown[i];
            for (int s = 0; item->seq_steps && s < item->steps_count; s++)
                item->seq_steps[s].owner = moved(item->seq_steps[s].owner);
        }
        session->seqs.current = moved(session->seqs.current);
    }
    session->seqs.seq = grown;
    session->seqs.capacity = capacity;
    return true;
}

// A jump "file:module": 1 when seqs.current is the target (transition 7),
// 0 when the sequence cannot be loaded and the scan goes on, -1 for bad
// syntax.
static int seq_jump(session_t* session, const std::string& name, char** module, int* transition)
{
    int count = 0;
    char** parts = parse_ini_line(name.c_str(), &count, ':');
    print_log("sequence_execute_document: moving to the another sequence = %s", name.c_str());
    if (count != 2) {
        error("sequence_execute_document: bad syntax of transition to another sequence");
        free_ini_pieces(parts, count);
        return -1;
    }
    seq_item_t* found = get_sequence_by_filename(session, parts[0]);
    if (found) {
        session->seqs.current = found;
        *transition = SEQ_TRANSITION_JUMP;
        free_ini_pieces(parts, count);
        return 1;
    }
    char* content = nullptr;
    int size = 0;
    store_file_get_content(&session->cab, STORE_INTERNAL, parts[0], &content, &size, nullptr);
    if (!content) {
        error("sequence_execute: can't extract _internal_::%s", parts[0]);
        free_ini_pieces(parts, count);
        return 0;
    }
    if (session->seqs.count >= session->seqs.capacity && !seq_grow_items(session)) {
        error("sequence_execute_document: sequences realloc failure");
        free(content);
        free_ini_pieces(parts, count);
        return 0;
    }
    document_t* doc = new document_t();
    if (xml_parse(content, doc) != 0)
        print_log("sequence_execute_document: %s is not well formed, using what was parsed", parts[0]);
    free(content);
    if (doc->nodes_count <= 0) {
        xml_free(doc);
        delete doc;
        error("sequence_execute_document: cannot load another sequence");
        free_ini_pieces(parts, count);
        return 0;
    }
    seq_item_t* slot = &session->seqs.seq[session->seqs.count];
    memset(slot, 0, sizeof *slot);
    slot->doc = doc;
    slot->filename = strdup(parts[0]);
    if (module) {
        free(*module);
        *module = strdup(parts[1]);
    }
    session->seqs.current = slot;
    session->seqs.count++;
    *transition = SEQ_TRANSITION_JUMP;
    free_ini_pieces(parts, count);
    return 1;
}

// Sets the transition for a reserved action name; false for other names.
static bool seq_reserved(doc_run_t* run, int* transition, char** action, char** sub, int* result)
{
    const std::string& name = run->current;
    *result = 0;
    if (name == "_finish_") {
        print_log("moving to last module");
        *transition = SEQ_TRANSITION_FINISH;
    } else if (name == "_next_") {
        print_log("moving to next module");
        *transition = SEQ_TRANSITION_NEXT;
    } else if (name == "_prev_") {
        print_log("moving to previous module2");
        *transition = SEQ_TRANSITION_PREV;
    } else if (name == "_out_") {
        print_log("moving out of submodule");
        *transition = SEQ_TRANSITION_OUT;
    } else if (name == "_in_") {
        // A layer's document has no action in which to keep the point of
        // return, so a section of the layers can't be entered from it.
        if (!action) {
            error("sequence_execute_document: \"_in_\" can't be used in a layer's document");
            *result = -1;
            return true;
        }
        *transition = (run->next_count << 8) + SEQ_TRANSITION_IN;
        print_log("moving into submodule %s from action %s. Result is %d", nz(run->pending_sub),
                  run->executed ? run->last.c_str() : "", *transition);
        *sub = run->pending_sub;
        *action = strdup(run->executed ? run->last.c_str() : "");
    } else {
        return false;
    }
    return true;
}

// The token of the present mode that a layer's behavior must list.
static const char* seq_mode_token(bool install, bool silent)
{
    if (silent)
        return install ? "silent_inst" : "silent_uninst";
    return install ? "cli_inst" : "cli_uninst";
}

int sequence_execute_document(session_t* session, cab_t* cab, node_t* root, char* section, char** action,
                              int* transition, char** sub, char** module)
{
    if (!session) {
        error("sequence_execute_document: session is NULL");
        return -1;
    }
    bool install = seq_kelm_mode(session) == 0;
    bool silent = env_exists(session, "silent");
    print_log("sequence_execute_document: started");
    if (!transition || !sub) {
        error("sequence_execute_document: not initialized");
        return -1;
    }
    if (!root) {
        print_log("sequence_execute_document: Nothing to process, exiting");
        *transition = SEQ_TRANSITION_NEXT;
        return 0;
    }
    const char* start = action ? *action : nullptr;
    print_log("sequence_execute_document: root: %s, section: %s, start: %s, sub: %s", nz(root->name), nz(section),
              nz(start), nz(*sub));

    doc_run_t run;
    run.session = session;
    run.next_shift = (*transition >> 8) & 0xff;
    const char* token = seq_mode_token(install, silent);
    int result = 0;
    for (int b = 0; b < root->childs_count; b++) {
        node_t* block = &root->childs[b];
        if (!is_named(block, "behavior"))
            continue;
        if (section) {
            char* id = xml_node_get_key(block, "id");
            char* names = xml_node_get_key(block, "sequence");
            print_log("sequence_execute_document(): sect id = %s", nz(id));
            print_log("sequence_execute_document(): section id = %s", section);
            print_log("sequence_execute_document(): seqnames = %s", nz(names));
            if (id && strcmp(id, section))
                continue;
            if (!names || !strstr(names, token))
                continue;
            print_log("sequence_execute_document: install: %d, silent: %d, sequence names: %s", install ? 1 : 0,
                      silent ? 1 : 0, names);
        }
        char* condition = xml_node_get_key(block, "condition");
        if (condition && cond_is_true(condition, session) != 1)
            continue;
        const char* first = section ? xml_node_get_key(block, "action") : start;
        if (!first)
            goto finished;
        if (block->childs_count <= 0)
            continue;
        run.current = first;
        for (int position = 0; position < block->childs_count; position++) {
            if (seq_reserved(&run, transition, action, sub, &result))
                goto finished;
            if (run.current.find(':') != std::string::npos && run.current != run.failed_jump) {
                int jumped = seq_jump(session, run.current, module, transition);
                if (jumped < 0)
                    result = -1;
                if (jumped != 0)
                    goto finished;
                run.failed_jump = run.current;
            }
            node_t* child = &block->childs[position];
            if (!is_named(child, "action"))
                continue;
            char* id = xml_node_get_key(child, "id");
            if (!id) {
                error("sequence_execute_document: action id is NULL");
                continue;
            }
            if (run.current != id)
                continue;
            if (sequence_exec_typed_action(session, cab, root, child) != 0) {
                result = -1;
                goto finished;
            }
            run.last = id;
            run.executed = true;
            int way = seq_choose_way(&run, child);
            if (way == WAY_PREV) {
                *transition = SEQ_TRANSITION_PREV;
                goto finished;
            }
            if (way == WAY_RESTART)
                position = -1;
        }
    }
    print_log("sequence_execute_document: finished");
finished:
    free_stack(&run.visited);
    return result;
}
