// Sequences: the package's wizard as loaded from sequence.ini, its sequence
// files, module documents and layers.
#ifndef KELM_SEQ_H
#define KELM_SEQ_H

#include <cstdint>
#include <map>
#include <string>

#include "session.h"
#include "store.h"

struct document_t;
struct node_t;
struct seq_item_t;

// Room of a new step list, of a step's nested modules and of a sequence's
// layer list; each grows by the same amount when full.
#define SEQ_LIST_CHUNK 4096
// Room of the session's sequence array; it grows by the same amount.
#define SEQ_ITEMS_CHUNK 2
// Longest path a layer's unpacked entry may have.
#define SEQ_PATH_MAX 4096

// A nested module of a step. Strings belong to the parsed sequence file.
struct sub_step_t {
    document_t* doc;
    char* id;
    char* action;
};

// One step of a sequence. Strings belong to the parsed sequence file; each
// may be null.
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
// Strings belong to the parsed sequence file.
struct seq_layer_t : cab_t {
    document_t* doc = nullptr;
    env_map_t env;
    char* id = nullptr;
    char* condition = nullptr; // kept for the log; nothing evaluates it
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

// What a sequence's layers are read with: the properties, read once.
struct seq_load_ctx_t {
    std::string arch;
    std::string temp_folder;
    std::string lang;
    std::string additional_locales;
    std::string config_dir;
    std::map<std::string, std::string> locales_mapping;
};

// Chooses the sequence: the first line of _internal_::sequence.ini whose
// condition holds and whose sequence file can be read becomes seqs.seq[0].
// A package without a usable line leaves seqs.seq null. 0, or -1 when a
// file named on disk cannot be read or memory runs out.
int init_sequence(session_t* session);

// Reads the layers and then the steps of a loaded sequence, following the
// "next" chain from the module "_start_"; 0 or -1.
int sequence_execute_container(session_t* session, seq_item_t* sequence);

// The loaded sequence whose filename is exactly the one given, or null.
seq_item_t* get_sequence_by_filename(session_t* session, const char* filename);

// Index of the first step of the sequence with exactly that id, or -1.
int get_module_index_by_id(seq_item_t* sequence, const char* id);

// Builds a new step list from steps1[0..out] (stopping at count1) followed by
// steps2[in..count2-1], and stores it in *steps1; the old list is left as it
// is. Returns the new count, or -1.
int merge_steps(step_t** steps1, int count1, int out, step_t** steps2, int count2, int in);

// Loads one "layer" element of a sequence file and appends it to the
// sequence: opens its cab, reads its document, unpacks its files under
// TEMP_FOLDER/<id>, attaches its cabs and sets its strings. 0 when loaded or
// skipped with a report, -1 when a failure must stop the whole sequence.
int seq_load_layer(session_t* session, seq_item_t* sequence, node_t* element, const seq_load_ctx_t* ctx);

// True when a layer's strings block of this locale suits LANG, directly or
// through LOCALES_MAPPING.
bool seq_locale_matches(const seq_load_ctx_t* ctx, const char* locale);

// Releases a document made by the loader; null is ignored.
void seq_free_doc(document_t* doc);

// Releases every loaded sequence with its steps, nested modules, documents
// and layers, and empties seqs. Called when the run is over.
void sequence_release_all(session_t* session);

#endif
