// Sequences: the package's wizard as loaded from sequence.ini, its sequence
// files, module documents and layers.
#ifndef KELM_SEQ_H
#define KELM_SEQ_H

#include <cstdint>

#include "session.h"
#include "store.h"

struct document_t;
struct seq_item_t;

// A nested module of a step.
struct sub_step_t {
    document_t* doc;
    char* id;
    char* action;
};

// One step of a sequence.
struct step_t {
    document_t* doc;
    char* id;
    char* action;
    char* condition;
    char* name;
    sub_step_t* sub;
    int32_t subs_count;
    int32_t subs_capacity;
    seq_item_t* owner;
};

// One layer: a cab of its own, a document whose sections run at each step,
// and a local property map. It begins with its cab and can be passed as one.
struct seq_layer_t : cab_t {
    document_t* doc = nullptr;
    env_map_t env;
    char* id = nullptr;
    char* condition = nullptr;
    char* executedir = nullptr;
};

// One loaded sequence.
struct seq_item_t {
    document_t* doc;
    char* filename;
    step_t* seq_steps;
    int32_t steps_capacity;
    seq_layer_t** seq_layers;
    int32_t layers_capacity;
    int32_t steps_count;
    int32_t layers_count;
    step_t* current_step;
    sub_step_t* current_sub;
};

#endif
