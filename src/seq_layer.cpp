// Loading a sequence's layers: their cabs, documents, unpacked files,
// attached cabs and localised strings.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

// Creates a directory and its missing parents; an existing one is fine.
static int make_dirs(const std::string& path, mode_t mode)
{
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), mode);
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST)
        return -1;
    return 0;
}

bool seq_locale_matches(const seq_load_ctx_t* ctx, const char* locale)
{
    if (!ctx || !locale || !*locale)
        return false;
    if (ctx->lang == locale)
        return true;
    auto mapped = ctx->locales_mapping.find(ctx->lang);
    return mapped != ctx->locales_mapping.end() && mapped->second == locale;
}

// Entries of the 32-bit components are unpacked only on their architecture.
static bool entry_fits_arch(const char* component, const std::string& arch)
{
    if (!strcmp(component, "_internal_32_"))
        return arch == "NARROW32";
    if (!strcmp(component, "_internal_32e_"))
        return arch == "ORVAN64";
    return true;
}

// Unpacks every entry but the first into the layer's directory; a file that
// is already there is kept. -1 when a destination path is too long.
static int unpack_layer(session_t* session, seq_layer_t* layer, const std::string& dir, const seq_load_ctx_t* ctx)
{
    for (int i = 1; layer->items && i <= layer->last_item; i++) {
        cab_item_t* item = &layer->items[i];
        print_log("sequence_execute_container: processing layer file %s:%s", nz(item->component), nz(item->name));
        if (!item->component || !item->name)
            continue;
        if (!entry_fits_arch(item->component, ctx->arch))
            continue;
        if (dir.size() + strlen(item->name) > SEQ_PATH_MAX) {
            error("sequence_execute_container: entry_name max length exceeded");
            return -1;
        }
        std::string destination = dir + "/" + item->name;
        if (exists(destination.c_str())) {
            print_log("sequence_execute_container: entry %s already exists, skipping", destination.c_str());
            continue;
        }
        print_log("sequence_execute_container: extracting to %s", destination.c_str());
        store_file_extract(session, layer, item->component, item->name, destination.c_str());
    }
    return 0;
}

// Sets the layer's strings: the blocks of the chosen locale when one is
// listed in ADDITIONAL_LOCALES, else the blocks without a locale. Strings
// whose name starts with the layer's id reach the global properties too.
static void load_layer_strings(session_t* session, seq_layer_t* layer, node_t* root, const seq_load_ctx_t* ctx)
{
    bool localized = false;
    for (int i = 0; i < root->childs_count; i++) {
        node_t* block = &root->childs[i];
        if (!block->name || strcmp(block->name, "strings"))
            continue;
        const char* locale = attr(block, "locale");
        if (!seq_locale_matches(ctx, locale))
            continue;
        if (ctx->additional_locales.find(locale) != std::string::npos) {
            localized = true;
            print_log("sequence_execute_container: found localized strings for layer for LANG '%s'", ctx->lang.c_str());
        } else {
            print_log("sequence_execute_container: found localized strings for LANG '%s' but it is not included "
                      "into ADDITIONAL_LOCALES list",
                      ctx->lang.c_str());
        }
    }

    for (int i = 0; i < root->childs_count; i++) {
        node_t* block = &root->childs[i];
        if (!block->name || strcmp(block->name, "strings"))
            continue;
        const char* locale = attr(block, "locale");
        bool taken = localized ? seq_locale_matches(ctx, locale) : (!locale || !*locale || !strcmp(locale, "default"));
        if (!taken)
            continue;
        for (int k = 0; k < block->childs_count; k++) {
            node_t* string = &block->childs[k];
            const char* name = attr(string, "name");
            if (!name)
                continue;
            std::string value =
                string->data && string->data_len >= 0 ? std::string(string->data, string->data_len) : std::string();
            env_set_string(session, name, value.c_str());
            if (!strncmp(name, layer->id, strlen(layer->id)))
                env_set_string_internal(&session->env, name, value);
        }
    }
}

// Appends a loaded layer to the sequence's list, growing it when full.
static int append_layer(seq_item_t* sequence, seq_layer_t* layer)
{
    if (sequence->layers_count == sequence->layers_capacity) {
        seq_layer_t** grown = (seq_layer_t**)realloc(
            sequence->seq_layers, (sequence->layers_capacity + SEQ_LIST_CHUNK) * sizeof(seq_layer_t*));
        if (!grown) {
            error("sequence_execute_container: sequence->seq_layers realloc failure");
            return -1;
        }
        sequence->seq_layers = grown;
        sequence->layers_capacity += SEQ_LIST_CHUNK;
    }
    sequence->seq_layers[sequence->layers_count++] = layer;
    print_log("sequence_execute_container: layer_num = %d", sequence->layers_count);
    return 0;
}

// A layer that could not be read: closes what was opened and forgets it.
static void discard_layer(seq_layer_t* layer)
{
    seq_free_doc(layer->doc);
    store_release(layer);
    delete layer;
}

int seq_load_layer(session_t* session, seq_item_t* sequence, node_t* element, const seq_load_ctx_t* ctx)
{
    if (!session || !sequence || !element || !ctx) {
        LOG_NULL_PARAM();
        return -1;
    }
    char* file = attr(element, "file");
    char* id = attr(element, "id");
    if (!file) {
        error("sequence_execute_container: layer file name is NULL");
        return 0;
    }
    if (!id) {
        error("sequence_execute_container: id of layer is NULL");
        return 0;
    }

    seq_layer_t* layer = new seq_layer_t();
    layer->id = id;
    layer->condition = attr(element, "condition");
    layer->executedir = attr(element, "executedir");
    print_log("sequence_execute_container: layer info: file %s, condition %s", file, nz(layer->condition));

    // A layer whose cab cannot be read is left out, as one without its
    // document is.
    std::string cab_path = ctx->config_dir + "/" + file;
    if (store_read_header(session, layer, cab_path.c_str()) != 0) {
        error("sequence_execute_container: can't extract %s", id);
        discard_layer(layer);
        return 0;
    }
    std::string doc_name = std::string(id) + ".xml";
    char* content = nullptr;
    int size = 0;
    store_file_get_content(layer, "_internal_", doc_name.c_str(), &content, &size, nullptr);
    if (!content) {
        error("sequence_execute_container: can't extract %s", id);
        discard_layer(layer);
        return 0;
    }
    print_log("sequence_execute_container: read %d bytes from %s", size, doc_name.c_str());
    layer->doc = new document_t();
    if (xml_parse(content, layer->doc) != 0)
        print_log("sequence_execute_container: %s is not well formed, using what was parsed", doc_name.c_str());
    free(content);

    std::string dir = ctx->temp_folder + "/" + id;
    if (make_dirs(dir, 0755) != 0)
        error("sequence_execute_container: can not create %s", dir.c_str());
    print_log("sequence_execute_container: layer temp dir is %s, arch is %s", dir.c_str(), ctx->arch.c_str());
    if (unpack_layer(session, layer, dir, ctx) != 0) {
        discard_layer(layer);
        return -1;
    }

    if (append_layer(sequence, layer) != 0) {
        discard_layer(layer);
        return -1;
    }

    session->scope = layer;
    env_init(session);
    node_t* root = layer->doc->nodes_count > 0 ? &layer->doc->nodes[0] : nullptr;
    if (root) {
        const char* attached = attr(root, "file");
        if (attached) {
            env_set_string(session, "__ATTACHED_CABS", attached);
            store_attach_cabs(session);
        }
        load_layer_strings(session, layer, root, ctx);
    }
    session->scope = nullptr;
    return 0;
}
