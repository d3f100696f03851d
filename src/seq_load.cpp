// Choosing the sequence from sequence.ini and reading its steps.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "cond.h"
#include "env.h"
#include "log.h"
#include "seq.h"
#include "store.h"
#include "utils.h"
#include "xml.h"

static const char* nz(const char* text)
{
    return text ? text : "(null)";
}

static char* attr(node_t* node, const char* name)
{
    return xml_node_get_key(node, name);
}

void seq_free_doc(document_t* doc)
{
    if (!doc)
        return;
    xml_free(doc);
    delete doc;
}

// Parses text into a new document. Null when nothing usable came out: no
// root element, or no memory. A partly parsed text keeps what was parsed.
static document_t* seq_parse(const char* text, const char* what)
{
    document_t* doc = new document_t();
    if (xml_parse(text, doc) != 0)
        print_log("seq_parse: %s is not well formed, using what was parsed", what);
    if (doc->nodes_count <= 0) {
        seq_free_doc(doc);
        return nullptr;
    }
    return doc;
}

// The content of a file named in sequence.ini, component empty; null after a
// report when it cannot be read.
static char* read_sequence_file(session_t* session, const char* file)
{
    if (!file || !*file) {
        error("sequence_init: filename is null");
        return nullptr;
    }
    std::string path = file;
    if (file[0] != '/') {
        std::string engine_dir = env_get_string(session, "ENGINE_DIR");
        if (engine_dir.empty()) {
            error("sequence_init: can not read ENGINE_DIR property");
            return nullptr;
        }
        path = engine_dir + "/" + file;
    }
    FILE* in = fopen(path.c_str(), "r");
    if (!in) {
        error("sequence_init: can not open file %s", path.c_str());
        return nullptr;
    }
    std::string text;
    char buffer[8192];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, in)) > 0)
        text.append(buffer, got);
    fclose(in);
    if (text.empty()) {
        error("sequence_init: can not read content of the %s", path.c_str());
        return nullptr;
    }
    return strdup(text.c_str());
}

static void drop_sequences(session_t* session)
{
    free(session->seqs.seq);
    session->seqs.seq = nullptr;
    session->seqs.count = 0;
    session->seqs.capacity = 0;
}

int init_sequence(session_t* session)
{
    print_log("init_sequence: started");
    if (!session) {
        error("init_sequence: parameter is NULL");
        return 0;
    }
    if (!store_file_exists(&session->cab, "_internal_", "sequence.ini")) {
        error("init_sequence: There is no _internal_::sequence.ini");
        return 0;
    }
    print_log("init_sequence: Let's get sequence.ini content");
    char* ini = nullptr;
    int ini_size = 0;
    store_file_get_content(&session->cab, "_internal_", "sequence.ini", &ini, &ini_size, nullptr);
    if (!ini) {
        error("init_sequence: can't read _orvannal_::sequence.ini.");
        return 0;
    }

    session->seqs.count = 0;
    session->seqs.capacity = SEQ_ITEMS_CHUNK;
    session->seqs.current = nullptr;
    session->seqs.seq = (seq_item_t*)calloc(SEQ_ITEMS_CHUNK, sizeof(seq_item_t));
    if (!session->seqs.seq) {
        error("sequence_init: seq malloc failure");
        session->seqs.capacity = 0;
        free(ini);
        return -1;
    }
    print_log("init_sequence: Start parsing of the sequence definition");

    int result = 0;
    int position = 0;
    char* line;
    while (session->seqs.count == 0 && (line = get_next_line(ini, ini_size, &position))) {
        int count = 0;
        char** fields = parse_ini_line(line, &count, ':');
        if (count < 3) {
            print_log("init_sequence: less than three components, skipping this line");
            free_ini_pieces(fields, count);
            continue;
        }
        if (cond_is_true(fields[2], session) != 1) {
            print_log("init_sequence: Condition is false");
            free_ini_pieces(fields, count);
            continue;
        }
        print_log("init_sequence: Condition is true");

        char* content = nullptr;
        if (!*fields[0]) {
            print_log("init_sequence: Looks like we should read %s sequence file", fields[1]);
            content = read_sequence_file(session, fields[1]);
            if (!content) {
                free_ini_pieces(fields, count);
                result = -1;
                break;
            }
        } else {
            print_log("init_sequence: Looks like we should read %s::%s sequence file", fields[0], fields[1]);
            int size = 0;
            store_file_get_content(&session->cab, fields[0], fields[1], &content, &size, nullptr);
            if (!content) {
                error("init_sequence: can't extract %s::%s", fields[0], fields[1]);
                free_ini_pieces(fields, count);
                continue;
            }
        }

        document_t* doc = seq_parse(content, fields[1]);
        free(content);
        if (!doc) {
            error("init_sequence: can't load the sequence data");
            free_ini_pieces(fields, count);
            continue;
        }
        seq_item_t* item = &session->seqs.seq[0];
        item->doc = doc;
        item->filename = strdup(fields[1]);
        session->seqs.count = 1;
        free_ini_pieces(fields, count);
    }
    free(ini);

    // A sequence.ini of which no line gave a sequence counts as none at
    // all: the run then reports a missing sequence.
    if (result != 0 || session->seqs.count == 0)
        drop_sequences(session);
    if (result != 0)
        return -1;
    print_log("init_sequence: finished");
    return 0;
}

seq_item_t* get_sequence_by_filename(session_t* session, const char* filename)
{
    if (!session || !filename) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    for (int i = 0; session->seqs.seq && i < session->seqs.count; i++) {
        seq_item_t* item = &session->seqs.seq[i];
        if (item->filename && !strcmp(item->filename, filename)) {
            print_log("get_sequence_by_filename: sequence %s found in cache", filename);
            return item;
        }
    }
    print_log("get_sequence_by_filename: sequence %s NOT found in cache", filename);
    return nullptr;
}

int get_module_index_by_id(seq_item_t* sequence, const char* id)
{
    if (!sequence || !id) {
        LOG_NULL_PARAM();
        return -1;
    }
    for (int i = 0; sequence->seq_steps && i < sequence->steps_count; i++) {
        const char* step_id = sequence->seq_steps[i].id;
        if (step_id && !strcmp(step_id, id)) {
            print_log("get_module_index_by_id: module %s has %d index", id, i);
            return i;
        }
    }
    print_log("get_module_index_by_id: module %s has not been found", id);
    return -1;
}

int merge_steps(step_t** steps1, int count1, int out, step_t** steps2, int count2, int in)
{
    print_log("merge_steps: started");
    if (!steps1 || !steps2) {
        LOG_NULL_PARAM();
        return -1;
    }
    int first = 0;
    for (int i = 0; i <= out && i < count1; i++)
        first++;
    int second = in < 0 ? count2 : (in < count2 ? count2 - in : 0);
    // The list has room for a fixed number of steps, or for all of them when
    // two long sequences meet.
    int room = first + second > SEQ_LIST_CHUNK ? first + second : SEQ_LIST_CHUNK;
    step_t* merged = (step_t*)calloc(room, sizeof(step_t));
    if (!merged) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return -1;
    }
    print_log("merge_steps: steplist1 count = %d, out = %d", count1, out);
    int count = 0;
    for (int i = 0; i < first; i++)
        merged[count++] = (*steps1)[i];
    print_log("merge_steps: steplist2 count = %d; in = %d", count2, in);
    for (int i = in < 0 ? 0 : in; i < count2; i++)
        merged[count++] = (*steps2)[i];
    *steps1 = merged;
    print_log("merge_steps: modules count after merging = %d", count);
    print_log("merge_steps: finished");
    return count;
}

// Fetches a module's document from the root cab; null when there is none.
static document_t* module_document(session_t* session, const char* component, const char* file)
{
    if (!component || !file)
        return nullptr;
    char* content = nullptr;
    int size = 0;
    store_file_get_content(&session->cab, component, file, &content, &size, nullptr);
    if (!content)
        return nullptr;
    document_t* doc = seq_parse(content, file);
    free(content);
    return doc;
}

// Makes a step of a module element, with its nested modules, and appends it.
static int make_step(session_t* session, seq_item_t* sequence, node_t* module)
{
    char* file = attr(module, "file");
    char* component = attr(module, "component");
    step_t step = {};
    step.id = attr(module, "id");
    step.action = attr(module, "action");
    step.name = attr(module, "name");
    step.condition = attr(module, "condition");
    step.owner = sequence;
    print_log("Module info: id %s, file %s, component %s, action %s, name %s, condition %s", nz(step.id), nz(file),
              nz(component), nz(step.action), nz(step.name), nz(step.condition));

    step.doc = module_document(session, component, file);
    if (!step.doc)
        print_log("sequence_execute_container: can't extract %s::%s HERE", nz(component), nz(file));

    step.sub = (sub_step_t*)calloc(SEQ_LIST_CHUNK, sizeof(sub_step_t));
    if (!step.sub) {
        error("sequence_execute_container: step.sub malloc failure");
        return -1;
    }
    step.subs_capacity = SEQ_LIST_CHUNK;
    for (int i = 0; i < module->childs_count; i++) {
        node_t* child = &module->childs[i];
        if (!child->name || strcmp(child->name, "module"))
            continue;
        char* sub_file = attr(child, "file");
        char* sub_component = attr(child, "component");
        sub_step_t sub = {};
        sub.doc = module_document(session, sub_component, sub_file);
        sub.id = attr(child, "id");
        sub.action = attr(child, "action");
        if (!sub.doc)
            print_log("sequence_execute_container: can't extract %s::%s", nz(sub_component), nz(sub_file));
        print_log("sequence_execute_container: found sub: %s", nz(sub.id));
        if (step.subs_count == step.subs_capacity) {
            sub_step_t* grown =
                (sub_step_t*)realloc(step.sub, (step.subs_capacity + SEQ_LIST_CHUNK) * sizeof(sub_step_t));
            if (!grown) {
                error("sequence_execute_container: step.sub realloc failure");
                free(step.sub);
                return -1;
            }
            step.sub = grown;
            step.subs_capacity += SEQ_LIST_CHUNK;
        }
        step.sub[step.subs_count++] = sub;
    }
    print_log("sequence_execute_container: found subs: %d", step.subs_count);

    if (sequence->steps_count == sequence->steps_capacity) {
        step_t* grown =
            (step_t*)realloc(sequence->seq_steps, (sequence->steps_capacity + SEQ_LIST_CHUNK) * sizeof(step_t));
        if (!grown) {
            error("sequence_execute_container: sequence->seq_steps realloc failure");
            free(step.sub);
            return -1;
        }
        sequence->seq_steps = grown;
        sequence->steps_capacity += SEQ_LIST_CHUNK;
    }
    sequence->seq_steps[sequence->steps_count++] = step;
    print_log("module_num = %d", sequence->steps_count);
    return 0;
}

// Walks the modules from "_start_" along their "next" elements. Every walk
// starts over at the first child, so the first module of an id always wins.
static int load_steps(session_t* session, seq_item_t* sequence, node_t* root)
{
    std::string wanted = "_start_";
    std::set<std::string> visited;
    while (!wanted.empty()) {
        node_t* module = nullptr;
        for (int i = 0; i < root->childs_count && !module; i++) {
            node_t* child = &root->childs[i];
            if (!child->name || strcmp(child->name, "module"))
                continue;
            const char* id = attr(child, "id");
            if (id && wanted == id)
                module = child;
        }
        if (!module)
            break;
        // A module reached twice would lead to the same modules again and
        // again: the chain is cut there instead of growing for ever.
        if (!visited.insert(wanted).second) {
            error("sequence_execute_container: module %s is reached twice, the chain of modules ends here",
                  wanted.c_str());
            break;
        }
        if (make_step(session, sequence, module) != 0)
            return -1;
        // The module's first "next" names the following one; without it,
        // or with an empty call, the chain ends.
        wanted.clear();
        for (int i = 0; i < module->childs_count; i++) {
            node_t* child = &module->childs[i];
            if (!child->name || strcmp(child->name, "next"))
                continue;
            char* call = attr(child, "call");
            char* expanded = call ? expand_operand(session, call) : nullptr;
            wanted = expanded ? expanded : "";
            free(expanded);
            break;
        }
    }
    return 0;
}

// Reads the properties the layers are loaded with. An absent ARCH counts as
// NARROW32; an empty TEMP_FOLDER becomes PACKAGE_DIR/tmp, created here.
static void read_load_context(session_t* session, seq_load_ctx_t* ctx)
{
    ctx->arch = env_exists(session, "ARCH") ? env_get_string(session, "ARCH") : "NARROW32";
    ctx->temp_folder = env_get_string(session, "TEMP_FOLDER");
    if (ctx->temp_folder.empty()) {
        ctx->temp_folder = env_get_string(session, "PACKAGE_DIR") + "/tmp";
        env_set_string(session, "TEMP_FOLDER", ctx->temp_folder);
        if (mkdir(ctx->temp_folder.c_str(), 0755) != 0 && errno != EEXIST)
            error("sequence_execute_container: can not create %s", ctx->temp_folder.c_str());
    }
    ctx->lang = env_get_string(session, "LANG");
    ctx->additional_locales = env_get_string(session, "ADDITIONAL_LOCALES");
    std::string mapping = env_get_string(session, "LOCALES_MAPPING");
    for (const std::string& piece : splitStringIntoTokens(mapping, ";", false)) {
        std::vector<std::string> pair = splitStringIntoTokens(piece, ":", false);
        if (pair.empty())
            continue;
        ctx->locales_mapping[pair.front()] = pair.back();
        print_log("sequence_execute_container: Locale '%s' is mapped to '%s'", pair.front().c_str(),
                  pair.back().c_str());
    }
    ctx->config_dir = env_get_string(session, "CONFIG_DIR");
}

int sequence_execute_container(session_t* session, seq_item_t* sequence)
{
    if (!session) {
        error("sequence_execute_container: session is NULL");
        return -1;
    }
    if (!sequence) {
        LOG_NULL_PARAM();
        return -1;
    }
    seq_load_ctx_t ctx;
    read_load_context(session, &ctx);

    sequence->seq_steps = (step_t*)calloc(SEQ_LIST_CHUNK, sizeof(step_t));
    if (!sequence->seq_steps) {
        error("sequence_execute_container: sequence->seq_steps malloc failure");
        return -1;
    }
    sequence->steps_capacity = SEQ_LIST_CHUNK;
    sequence->seq_layers = (seq_layer_t**)calloc(SEQ_LIST_CHUNK, sizeof(seq_layer_t*));
    if (!sequence->seq_layers) {
        error("sequence_execute_container: sequence->seq_layers malloc failure");
        return -1;
    }
    sequence->layers_capacity = SEQ_LIST_CHUNK;
    sequence->steps_count = 0;
    sequence->layers_count = 0;

    if (ctx.config_dir.empty()) {
        error("sequence_execute_container: base_dir is null");
        return -1;
    }
    if (!sequence->doc || sequence->doc->nodes_count <= 0) {
        error("sequence_execute_container: sequence %s has no document", nz(sequence->filename));
        return -1;
    }
    node_t* root = &sequence->doc->nodes[0];

    for (int i = 0; i < root->childs_count; i++) {
        node_t* child = &root->childs[i];
        if (child->name && !strcmp(child->name, "layer") && seq_load_layer(session, sequence, child, &ctx) != 0)
            return -1;
    }
    if (load_steps(session, sequence, root) != 0)
        return -1;

    print_log("sequence_execute_container: finished");
    return 0;
}

void sequence_release_all(session_t* session)
{
    if (!session || !session->seqs.seq)
        return;
    for (int i = 0; i < session->seqs.count; i++) {
        seq_item_t* item = &session->seqs.seq[i];
        for (int s = 0; item->seq_steps && s < item->steps_count; s++) {
            step_t* step = &item->seq_steps[s];
            for (int k = 0; step->sub && k < step->subs_count; k++)
                seq_free_doc(step->sub[k].doc);
            free(step->sub);
            seq_free_doc(step->doc);
        }
        free(item->seq_steps);
        for (int l = 0; item->seq_layers && l < item->layers_count; l++) {
            seq_layer_t* layer = item->seq_layers[l];
            seq_free_doc(layer->doc);
            store_release(layer);
            delete layer;
        }
        free(item->seq_layers);
        seq_free_doc(item->doc);
        free(item->filename);
    }
    drop_sequences(session);
    session->seqs.current = nullptr;
    session->seqs.steps = nullptr;
}
