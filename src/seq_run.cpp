// The outer loop of the wizard: steps, their numbering, the layers'
// sections, and the moves between steps and sequences.
#include "seq_run.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cond.h"
#include "env.h"
#include "log.h"
#include "seq.h"
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

static node_t* doc_root(document_t* doc)
{
    return doc && doc->nodes_count > 0 ? &doc->nodes[0] : nullptr;
}

// A step counts when it has no condition or a true one.
static bool step_holds(session_t* session, const step_t* step)
{
    return !step->condition || cond_is_true(step->condition, session) == 1;
}

// Local state of one run of the outer loop.
struct seq_run_t {
    session_t* session;
    step_t* steps = nullptr;
    int count = 0;
    seq_layer_t** layers = nullptr;
    int layers_count = 0;
    seq_item_t* in_use = nullptr; // the sequence whose layers are in use
    int index = 0;
    int step_number = 0;
    int finished = 0;
    char* pending_sub = nullptr;
    char* saved_action = nullptr; // owned
    int saved_transition = 0;
    char* target_module = nullptr; // owned
    int transition = 0;
    std::string base_dir;
    bool has_base_dir = false;
    std::vector<step_t*> merged; // step lists made by merging, owned
};

static void run_finish(seq_run_t* run)
{
    if (run->finished == 0)
        run->finished = 1;
    run->index = run->count > 0 ? run->count - 1 : 0;
}

static void run_fail(seq_run_t* run)
{
    run->finished = -1;
}

// Recounts the named steps whose condition holds, and lists them.
static void run_count_steps(seq_run_t* run)
{
    session_t* session = run->session;
    std::string prefix = env_get_string(session, "step");
    std::string titles;
    int total = 0;
    for (int i = 0; i < run->count; i++) {
        step_t* step = &run->steps[i];
        if (!step->name || !step_holds(session, step))
            continue;
        total++;
        titles += prefix + " " + std::to_string(total) + " : " + step->name + "\n";
    }
    env_set_string(session, "TOTAL_STEPS", std::to_string(total));
    env_set_string(session, "TOTAL_STEP_TITLES", titles);
}

// One step forward, over the steps whose condition is false.
static void run_step_forward(seq_run_t* run)
{
    session_t* session = run->session;
    run->index++;
    while (run->index < run->count && !step_holds(session, &run->steps[run->index]))
        run->index++;
    if (run->index < run->count) {
        step_t* step = &run->steps[run->index];
        if (step->name)
            run->step_number++;
        env_set_string(session, "CURRENT_STEP", std::to_string(run->step_number));
        env_set_string(session, "CURRENT_STEP_TITLE", step->name ? step->name : "");
    }
    run_count_steps(run);
    if (run->index >= run->count && run->finished == 0)
        run->finished = 1;
}

// One step back, to the previous named step whose condition holds, or to
// the first step. The layers don't run on the way back.
static void run_step_back(seq_run_t* run, bool expand_title)
{
    session_t* session = run->session;
    if (run->index <= 0) {
        run->index = 0;
    } else {
        // A step entered by a jump was never counted: the number stays at 0.
        if (run->steps[run->index].name && run->step_number > 0)
            run->step_number--;
        run->index--;
        while (run->index > 0 && (!run->steps[run->index].name || !step_holds(session, &run->steps[run->index])))
            run->index--;
    }
    const char* name = run->steps[run->index].name;
    std::string title = name ? (expand_title ? expand_string(session, name) : std::string(name)) : "";
    env_set_string(session, "CURRENT_STEP_TITLE", title);
    env_set_string(session, "CURRENT_STEP", std::to_string(run->step_number));
}

// Runs a document and keeps the running list's pointers to sequences true
// when the array of sequences had to grow for a jump.
static int run_document(seq_run_t* run, cab_t* cab, node_t* root, char* section, char** action, int* transition,
                        char** sub)
{
    session_t* session = run->session;
    seq_item_t* before = session->seqs.seq;
    int before_capacity = session->seqs.capacity;
    int result = sequence_execute_document(session, cab, root, section, action, transition, sub, &run->target_module);
    if (session->seqs.seq != before && before) {
        uintptr_t from = (uintptr_t)before, to = (uintptr_t)session->seqs.seq;
        auto moved = [&](seq_item_t* item) {
            uintptr_t at = (uintptr_t)item;
            if (at >= from && at < from + before_capacity * sizeof(seq_item_t))
                return (seq_item_t*)(to + (at - from));
            return item;
        };
        for (int i = 0; i < run->count; i++)
            run->steps[i].owner = moved(run->steps[i].owner);
        run->in_use = moved(run->in_use);
    }
    return result;
}

// Takes the layer's declared properties in: local ones keep their value or
// get the default, global ones are copied from the global level.
static void layer_import(seq_run_t* run, seq_layer_t* layer, node_t* root, int mode)
{
    session_t* session = run->session;
    for (int i = 0; i < root->childs_count; i++) {
        node_t* properties = &root->childs[i];
        if (!is_named(properties, "properties"))
            continue;
        for (int k = 0; k < properties->childs_count; k++) {
            node_t* property = &properties->childs[k];
            char* name = xml_node_get_key(property, "name");
            if (!name)
                continue;
            char* fallback = xml_node_get_key(property, "default");
            std::string value = fallback ? fallback : "";
            char* input = xml_node_get_key(property, "input");
            char* output = xml_node_get_key(property, "output");
            if (mode == SEQ_TRANSITION_NEXT && (!input || !output)) {
                error("sequence_execute: input or output is not defined for property %s", name);
                continue;
            }
            if (input && !strcmp(input, "local")) {
                if (!env_exists_internal(&layer->env, name))
                    env_set_string_internal(&layer->env, name, value);
            } else if (input && !strcmp(input, "global")) {
                if (env_exists_internal(&session->env, name))
                    env_set_string_internal(&layer->env, name, env_get_string_internal(&session->env, name));
                else if (output && !strcmp(output, "local") && !env_exists_internal(&layer->env, name))
                    env_set_string_internal(&layer->env, name, value);
            }
        }
    }
}

// Gives the layer's properties declared with output "global" out to the
// global level. Runs while the layer is in scope.
static void layer_export(seq_run_t* run, node_t* root)
{
    session_t* session = run->session;
    for (int i = 0; i < root->childs_count; i++) {
        node_t* properties = &root->childs[i];
        if (!is_named(properties, "properties"))
            continue;
        for (int k = 0; k < properties->childs_count; k++) {
            node_t* property = &properties->childs[k];
            char* name = xml_node_get_key(property, "name");
            if (!name)
                continue;
            char* output = xml_node_get_key(property, "output");
            if (!output) {
                error("sequence_execute: output is NULL");
                continue;
            }
            if (!strcmp(output, "global") && env_exists(session, name))
                env_set_string_internal(&session->env, name, env_get_string(session, name));
        }
    }
}

// Runs the layer's document for the section, once, or once for each entry
// of its executedir with KELM_INSTALL_DIR pointing into that directory.
static void layer_run_document(seq_run_t* run, seq_layer_t* layer, node_t* root, char* section, int mode)
{
    session_t* session = run->session;
    char* no_sub = nullptr;
    std::string dirs = layer->executedir ? layer->executedir : "";
    if (dirs.empty() || env_get_string(session, "KELM_INSTALL_DIR").empty()) {
        if (run_document(run, layer, root, section, nullptr, &run->transition, &no_sub) != 0)
            run_fail(run);
        return;
    }
    for (const std::string& dir : splitStringIntoTokens(dirs, ";", false)) {
        if (run->has_base_dir && !dir.empty()) {
            std::string target = run->base_dir + dir;
            print_log("sequence_execute(): changing execute dir for layer: %s to %s", nz(layer->id), target.c_str());
            env_set_string(session, "KELM_INSTALL_DIR", target);
        }
        if (mode == SEQ_TRANSITION_IN)
            print_log("sequence_execute(): layer id = %s", nz(layer->id));
        if (run_document(run, layer, root, section, nullptr, &run->transition, &no_sub) != 0)
            run_fail(run);
    }
}

// Runs the section of every layer in order: import, the document, export.
// In a forward move (mode 3) a layer's "_prev_" goes back at once and a
// layer's "_finish_" ends the run; entering a section (mode 5) knows only
// the latter. Gives false when the remaining layers must not run.
static bool run_layers(seq_run_t* run, char* section, int mode)
{
    session_t* session = run->session;
    for (int l = 0; l < run->layers_count; l++) {
        seq_layer_t* layer = run->layers[l];
        node_t* root = layer ? doc_root(layer->doc) : nullptr;
        if (!root)
            continue;
        run->transition = SEQ_TRANSITION_NONE;
        layer_import(run, layer, root, mode);
        session->scope = layer;
        layer_run_document(run, layer, root, section, mode);
        layer_export(run, root);
        session->scope = nullptr;
        print_log("next is %d", run->transition);
        int code = run->transition & 0xff;
        if (code == SEQ_TRANSITION_PREV && mode == SEQ_TRANSITION_NEXT) {
            run_step_back(run, false);
            return false;
        }
        if (code == SEQ_TRANSITION_FINISH) {
            run_finish(run);
            return false;
        }
    }
    return true;
}

// Loads the target of a jump when it is entered for the first time, and
// merges its steps from the named module on behind the current step.
static void run_jump(seq_run_t* run)
{
    session_t* session = run->session;
    seq_item_t* target = session->seqs.current;
    if (!target)
        return;
    if (target != run->in_use && !target->seq_steps) {
        print_log("sequence_execute: loading steps of %s", nz(target->filename));
        if (sequence_execute_container(session, target) != 0)
            error("sequence_execute: can't load the steps of %s", nz(target->filename));
    }
    const char* module = run->target_module ? run->target_module : "_init_";
    int found = get_module_index_by_id(target, module);
    if (found >= 0) {
        step_t* list = run->steps;
        int count = merge_steps(&list, run->count, run->index, &target->seq_steps, target->steps_count, found);
        if (count >= 0) {
            run->merged.push_back(list);
            run->steps = list;
            run->count = count;
            session->seqs.steps = list;
        }
    } else {
        error("sequence_execute: cannot find module %s in sequence %s", module, nz(target->filename));
    }
    run->layers = target->seq_layers;
    run->layers_count = target->layers_count;
    run->in_use = target;
    run->index++;
    if (run->index >= run->count && run->finished == 0)
        run->finished = 1;
}

// Reads the base directory for the layers' executedir: KELM_INSTALL_DIR
// cut before the first occurrence of KELM_INSTALL_SUBDIR.
static void run_read_base_dir(seq_run_t* run)
{
    session_t* session = run->session;
    std::string dir = env_get_string(session, "KELM_INSTALL_DIR");
    run->has_base_dir = !dir.empty();
    run->base_dir = dir;
    if (dir.empty())
        return;
    std::string subdir = env_get_string(session, "KELM_INSTALL_SUBDIR");
    size_t at = subdir.empty() ? std::string::npos : dir.find(subdir);
    if (at != std::string::npos)
        run->base_dir = dir.substr(0, at);
}

// One pass: run the current step's document and act on its transition.
// Gives -1 when the run must stop at once.
static int run_pass(seq_run_t* run)
{
    session_t* session = run->session;
    seq_item_t* current = session->seqs.current;
    if (current) {
        current->current_step = nullptr;
        current->current_sub = nullptr;
    }
    step_t* step = &run->steps[run->index];
    document_t* doc = nullptr;
    char* action = nullptr;
    if (!run->pending_sub) {
        print_log("sequence for the step = %s, module = %d", step->owner ? nz(step->owner->filename) : "(null)",
                  run->index);
        doc = step->doc;
        if (doc && current)
            current->current_step = step;
        if ((run->transition & 0xff) == SEQ_TRANSITION_OUT) {
            action = run->saved_action;
            run->transition = run->saved_transition;
        } else {
            action = step->action;
            run->transition = SEQ_TRANSITION_NONE;
        }
    } else {
        for (int i = 0; i < step->subs_count; i++) {
            sub_step_t* sub = &step->sub[i];
            if (sub->id && !strcmp(sub->id, run->pending_sub)) {
                action = sub->action;
                doc = sub->doc;
                if (current)
                    current->current_sub = sub;
            }
        }
        run->transition = SEQ_TRANSITION_NONE;
    }

    char* start = action;
    int result = run_document(run, &session->cab, doc_root(doc), nullptr, &action, &run->transition, &run->pending_sub);
    char* resume = action != start ? action : nullptr; // a new copy on "_in_"
    run->finished |= result;
    run_read_base_dir(run);

    switch (run->transition & 0xff) {
    case SEQ_TRANSITION_FIRST:
        run->index = run->count > 1 ? 1 : 0;
        break;
    case SEQ_TRANSITION_FINISH:
        run_finish(run);
        break;
    case SEQ_TRANSITION_NEXT:
        if (run_layers(run, step->id, SEQ_TRANSITION_NEXT))
            run_step_forward(run);
        break;
    case SEQ_TRANSITION_PREV:
        run_step_back(run, true);
        break;
    case SEQ_TRANSITION_IN:
        if (!resume) {
            LOG_NULL_PARAM();
            return -1;
        }
        free(run->saved_action);
        run->saved_action = resume;
        resume = nullptr;
        run->saved_transition = run->transition & ~0xff;
        run->transition = SEQ_TRANSITION_NONE;
        run_layers(run, run->pending_sub, SEQ_TRANSITION_IN);
        run->pending_sub = nullptr;
        run->transition = SEQ_TRANSITION_OUT;
        break;
    case SEQ_TRANSITION_JUMP:
        run_jump(run);
        break;
    default:
        error("sequence_execute: Unknown transition.");
        run_fail(run);
        break;
    }
    free(resume);
    return 0;
}

static void run_release(seq_run_t* run)
{
    session_t* session = run->session;
    free(run->saved_action);
    free(run->target_module);
    for (step_t* list : run->merged)
        free(list);
    session->scope = nullptr;
    sequence_release_all(session);
}

int sequence_execute(session_t* session)
{
    print_log("sequence_execute: started");
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    session->seqs.current = session->seqs.seq && session->seqs.count > 0 ? &session->seqs.seq[0] : nullptr;
    if (!session->seqs.current) {
        error("sequence_execute: sequence is NULL");
        return -1;
    }
    seq_run_t run;
    run.session = session;
    seq_item_t* first = session->seqs.current;
    if (sequence_execute_container(session, first) != 0)
        error("sequence_execute: the sequence %s was read only in part", nz(first->filename));
    run.steps = first->seq_steps;
    run.count = first->steps_count;
    run.layers = first->seq_layers;
    run.layers_count = first->layers_count;
    run.in_use = first;
    session->seqs.steps = run.steps;

    if (run.count <= 0) {
        error("sequence_execute: the sequence %s has no steps", nz(first->filename));
        run.finished = -1;
    }
    while (!run.finished) {
        if (run_pass(&run) != 0) {
            run_release(&run);
            return -1;
        }
    }
    if (run.finished != 1)
        error("sequence_execute: Execution error.");
    run_release(&run);
    print_log("sequence_execute: finished");
    return 0;
}
