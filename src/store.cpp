// The cab reader: opening a cab from the end of its file, attaching further
// cabs and archives, lookups, the walk over all entries, and taking entries
// out to memory or to a file.
#include "store.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <strings.h>

#include "env.h"
#include "file.h"
#include "log.h"
#include "seq.h"
#include "session.h"
#include "utils.h"

static const unsigned char CAB_MAGIC[4] = {0xAA, 0xAA, 0xAA, 0xAA};
static const unsigned char CAB_END_MARK[4] = {0xBB, 0xBB, 0xBB, 0xBB};
// install_name of every archive member; not owned by the record.
static char ARCHIVE_INSTALL_NAME[] = "${installdir}";
// The smallest entry: 14 separators, 10 empty strings, 4 numbers.
#define MIN_ENTRY_BYTES (14 * 2 + 10 * 8 + 4 * 8)
#define INITIAL_ATTACHED 10
#define COPY_BLOCK 1048576

int64_t unpack_i64(const unsigned char* buffer)
{
    if (!buffer) {
        error("unpack_i64: buffer is null");
        return -1;
    }
    uint64_t value = 0;
    for (int i = 0; i < 8; i++)
        value = value << 8 | buffer[i];
    return (int64_t)value;
}

unsigned char* pack_i64(int64_t value)
{
    unsigned char* buffer = (unsigned char*)malloc(9);
    if (!buffer)
        return nullptr;
    for (int i = 7; i >= 0; i--) {
        buffer[i] = (unsigned char)((uint64_t)value & 0xFF);
        value = (int64_t)((uint64_t)value >> 8);
    }
    buffer[8] = 0;
    return buffer;
}

char* ultoa(unsigned long value, char* buffer, int size)
{
    if (!buffer || size <= 0)
        return buffer;
    memset(buffer, 0, (size_t)size);
    char digits[32];
    int count = snprintf(digits, sizeof digits, "%lu", value);
    if (count > size - 1)
        count = size - 1;
    memcpy(buffer, digits, (size_t)count);
    return buffer;
}

// Releasing.

static void release_items(cab_item_t* items, int32_t last_item)
{
    if (!items)
        return;
    for (int64_t i = 0; i <= (int64_t)last_item + 1; i++) {
        cab_item_t* item = &items[i];
        free(item->component);
        free(item->name);
        if (item->install_name != ARCHIVE_INSTALL_NAME)
            free(item->install_name);
        free(item->target_name);
        free(item->install_uid);
        free(item->group_id);
        free(item->attrs);
        free(item->cksum);
        free(item->condition);
    }
    free(items);
}

void store_release(cab_t* cab)
{
    if (!cab)
        return;
    for (int32_t i = 0; cab->attached && i <= cab->last_attached; i++)
        store_release(&cab->attached[i]);
    free(cab->attached);
    if (cab->last_item >= -1)
        release_items(cab->items, cab->last_item);
    if (cab->file)
        fclose(cab->file);
    *cab = cab_t{};
}

// The next free slot of the cab's attached array, grown as needed; its index
// goes to *index. Null when memory runs out.
static cab_t* attached_slot(cab_t* cab, int32_t* index)
{
    int32_t next = cab->last_attached + 1;
    if (next >= cab->attached_capacity || !cab->attached) {
        int32_t capacity = cab->attached_capacity > 0 ? cab->attached_capacity * 2 : INITIAL_ATTACHED;
        if (capacity <= next)
            capacity = next + INITIAL_ATTACHED;
        cab_t* grown = (cab_t*)realloc((void*)cab->attached, sizeof(cab_t) * (size_t)capacity);
        if (!grown)
            return nullptr;
        cab->attached = grown;
        cab->attached_capacity = capacity;
    }
    cab_t* slot = new (&cab->attached[next]) cab_t();
    cab->last_attached = next;
    *index = next;
    return slot;
}

// Reading the table.

static bool read_exact(FILE* file, void* buffer, size_t size)
{
    return fread(buffer, 1, size, file) == size;
}

static bool read_number(FILE* file, int64_t* value)
{
    unsigned char bytes[8];
    if (!read_exact(file, bytes, 8))
        return false;
    *value = unpack_i64(bytes);
    return true;
}

static bool skip_separator(FILE* file)
{
    unsigned char bytes[2];
    return read_exact(file, bytes, 2);
}

// The state of one table read: the stream, its size, and whether an
// allocation failed.
struct table_reader_t {
    FILE* file;
    int64_t file_size;
    bool out_of_memory;
};

// Reads the bytes of a string field of length L (low 32 bits, signed) into a
// new NUL-terminated buffer: null for L below 1. A field longer than the
// rest of the file gets only what is there; *complete tells whether all L
// bytes came. Embedded NULs end the text, as for any C string.
static char* read_string_bytes(table_reader_t* reader, int64_t length, bool* complete)
{
    int32_t wanted = (int32_t)(uint32_t)(uint64_t)length;
    *complete = true;
    if (wanted < 1)
        return nullptr;
    int64_t size = wanted;
    // Only a long field needs the test against the rest of the file, which
    // keeps a forged length from allocating gigabytes.
    if (wanted > 65536) {
        int64_t here = ftello(reader->file);
        int64_t available = here >= 0 && reader->file_size > here ? reader->file_size - here : 0;
        size = wanted < available ? wanted : available;
    }
    char* text = (char*)calloc((size_t)size + 1, 1);
    if (!text) {
        reader->out_of_memory = true;
        return nullptr;
    }
    size_t got = size > 0 ? fread(text, 1, (size_t)size, reader->file) : 0;
    *complete = got == (size_t)wanted;
    return text;
}

// One string field after its separator: the length, then the bytes. Reports
// message when the length can't be read; the bytes are not checked.
static bool read_string_field(table_reader_t* reader, char** field, const char* message)
{
    int64_t length;
    if (!read_number(reader->file, &length)) {
        error("%s", message);
        return false;
    }
    bool complete;
    *field = read_string_bytes(reader, length, &complete);
    if (reader->out_of_memory) {
        error("store_read_cab: calloc failed");
        return false;
    }
    return true;
}

static bool read_number_field(FILE* file, int64_t* value, const char* message)
{
    if (!read_number(file, value)) {
        error("%s", message);
        return false;
    }
    return true;
}

static bool skip_field_separator(FILE* file, const char* message = "store_read_cab: can not skip 2 bytes in CAB")
{
    if (!skip_separator(file)) {
        error("%s", message);
        return false;
    }
    return true;
}

// The 14 fields of one entry.
static bool read_entry(table_reader_t* reader, cab_item_t* item)
{
    FILE* file = reader->file;
    int64_t number;

    if (!skip_field_separator(file))
        return false;
    int64_t length;
    if (!read_number(file, &length)) {
        error("store_read_cab: can not read component's name");
        return false;
    }
    bool complete;
    item->component = read_string_bytes(reader, length, &complete);
    if (reader->out_of_memory) {
        error("store_read_cab: calloc failed");
        return false;
    }
    if (!complete) {
        error("store_read_cab: can not read conponents");
        return false;
    }
    if (item->component) {
        size_t size = strlen(item->component);
        if (size > 0 && (item->component[size - 1] == '\n' || item->component[size - 1] == '\r'))
            item->component[size - 1] = '\0';
    }

    if (!skip_field_separator(file, "store_read_cab: can not skip 2 bytes after component in CAB") ||
        !read_string_field(reader, &item->name, "store_read_cab: can not read name in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->install_name, "store_read_cab: can not read install name in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->target_name, "store_read_cab: can not read target name in CAB"))
        return false;
    char* duplicated = nullptr;
    bool ok = skip_field_separator(file) &&
              read_string_field(reader, &duplicated, "store_read_cab: can not reaf duplicated in CAB");
    free(duplicated);
    if (!ok)
        return false;
    if (!skip_field_separator(file) || !read_number_field(file, &number, "store_read_cab: can not read type in CAB"))
        return false;
    item->type = (int32_t)(uint32_t)(uint64_t)number;
    if (!skip_field_separator(file) ||
        !read_number_field(file, &item->install_size, "store_read_cab: can not read install size in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->install_uid, "store_read_cab: can not install UID in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->group_id, "store_read_cab: can not group ID in CAB"))
        return false;
    if (!skip_field_separator(file) || !read_string_field(reader, &item->attrs, "store_read_cab: can not attrs in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->cksum, "store_read_cab: can not read cksum in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_number_field(file, &item->store_size, "store_read_cab: can not read store size in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_number_field(file, &item->store_offset, "store_read_cab: can not read store offset in CAB"))
        return false;
    if (!skip_field_separator(file) ||
        !read_string_field(reader, &item->condition, "store_read_cab: can not read condition in CAB"))
        return false;
    return true;
}

// A wrong magic or end mark: the stream is closed.
static int not_a_store(cab_t* cab, bool through_error)
{
    if (through_error)
        error("store_read_cab: It's not a valid store");
    else
        print_log("store_read_cab: It's not a valid store\n");
    fclose(cab->file);
    cab->file = nullptr;
    return -1;
}

int store_read_cab(cab_t* cab)
{
    if (!cab || !cab->file) {
        error("store_read_cab: cab file is null");
        return -1;
    }
    FILE* file = cab->file;
    if (fseeko(file, 0, SEEK_END) != 0) {
        error("store_read_cab: can not seek to the end of CAB file");
        return -1;
    }
    int64_t size = ftello(file);
    if (size < 0) {
        error("store_read_cab: can not seek to the end of CAB file");
        return -1;
    }
    // A file shorter than its tail fails at the tail's read below.
    if (size >= 16)
        fseeko(file, -16, SEEK_END);

    int64_t first_tail, second_tail;
    if (!read_number(file, &first_tail) || !read_number(file, &second_tail)) {
        error("store_read_cab: can not read 8 bytes from tail");
        return -1;
    }
    // The position of the magic, in 32-bit signed arithmetic.
    int32_t start = (int32_t)((uint32_t)size - (uint32_t)first_tail - (uint32_t)second_tail);
    if (start < 0 || fseeko(file, start, SEEK_SET) != 0) {
        error("store_read_cab: can not seek to the start of CAB file");
        return -1;
    }
    unsigned char mark[4];
    if (!read_exact(file, mark, 4)) {
        error("store_read_cab: can not read first 4 bytes from CAB");
        return -1;
    }
    if (memcmp(mark, CAB_MAGIC, 4) != 0)
        return not_a_store(cab, true);

    int64_t last;
    if (!read_number(file, &last)) {
        error("store_read_cab: can not get number of enties in CAB");
        return -1;
    }
    int32_t last_item = (int32_t)(uint32_t)(uint64_t)last;
    print_log("store_read_cab: detected %d enties in CAB", last_item);
    if (!skip_field_separator(file))
        return -1;

    if (cab->last_item >= -1)
        release_items(cab->items, cab->last_item);
    cab->items = nullptr;
    cab->last_item = last_item;
    // Room for last_item + 2 records, but never more than the rest of the
    // file can describe: a table claiming more entries fails while reading,
    // and then only the records that exist are counted.
    int64_t here = ftello(file);
    int64_t fit = (size - here) / MIN_ENTRY_BYTES + 2;
    int64_t wanted = (int64_t)last_item + 2;
    bool capped = wanted > fit;
    int64_t records = capped ? fit : wanted;
    cab->items = records > 0 ? (cab_item_t*)calloc((size_t)records, sizeof(cab_item_t)) : nullptr;
    if (!cab->items) {
        error("store_read_cab: cab->items allocation failed");
        return -1;
    }

    table_reader_t reader = {file, size, false};
    for (int32_t i = 0; i <= last_item; i++) {
        cab_item_t* item = &cab->items[i];
        if (!read_entry(&reader, item)) {
            if (capped)
                cab->last_item = (int32_t)(records - 2);
            return -1;
        }
        item->kind = STORE_KIND_CAB;
        print_log("store_read_cab: %s::%s", item->component ? item->component : "(none)",
                  item->name ? item->name : "(none)");
    }

    if (!read_exact(file, mark, 4) || memcmp(mark, CAB_END_MARK, 4) != 0)
        return not_a_store(cab, false);
    cab->store_base = ftello(file);
    return 0;
}

int store_read_header(session_t* session, cab_t* cab, const char* filename)
{
    if (!cab) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (!filename) {
        error("store_read_header: name of the executable is not defined");
        return -1;
    }
    FILE* file = fopen(filename, "rb");
    if (!file) {
        error("store_read_header: can't open '%s'", filename);
        return -1;
    }
    // A record opened before (a first attempt at another place) starts over.
    store_release(cab);
    cab->file = file;
    cab->last_attached = -1;
    cab->attached = (cab_t*)calloc(INITIAL_ATTACHED, sizeof(cab_t));
    cab->attached_capacity = cab->attached ? INITIAL_ATTACHED : 0;
    print_log("inited cab");
    return store_read_cab(cab);
}

int store_read_archive(cab_t* cab, const char* path, int kind)
{
    if (!cab) {
        error("store_read_archive: cab file is null");
        return -1;
    }
    if (!path) {
        error("store_read_archive: archive name is null");
        return -1;
    }
    // The member and the all-zero record that walks see; like every table,
    // one more zero record behind the last.
    cab_item_t* items = (cab_item_t*)calloc(3, sizeof(cab_item_t));
    if (!items) {
        error("store_read_archive: cab->items allocation failed");
        return -1;
    }
    if (cab->last_item >= -1)
        release_items(cab->items, cab->last_item);
    cab->items = items;
    cab->last_item = 1;
    print_log("store_read_archive: detected %d enties in CAB", cab->last_item);
    cab_item_t* member = &items[0];
    member->component = get_basename(path);
    member->name = strdup(path);
    member->target_name = strdup(path);
    member->install_name = ARCHIVE_INSTALL_NAME;
    member->type = -1;
    member->kind = kind;
    cab->kind = kind;
    cab->store_base = 0;
    print_log("store_read_archive: %s::%s, %d", member->component, member->name, kind);
    return 0;
}

// Attaching.

int store_attach_cab(session_t* session, const char* path)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (!path) {
        error("store_attach_cab: path to cab is not defined");
        return -1;
    }
    std::string full = path[0] == '/' ? path : env_get_string(session, "ENGINE_DIR") + "/" + path;
    print_log("store_attach_cab: try to open %s", full.c_str());
    FILE* file = fopen(full.c_str(), "rb");
    if (!file) {
        error("store_attach_cab: can't open '%s'", full.c_str());
        return -1;
    }
    int32_t index;
    cab_t* slot = attached_slot(&session->cab, &index);
    if (!slot) {
        error("store_attach_cab: cab->attached allocation failed");
        fclose(file);
        return -1;
    }
    slot->file = file;
    slot->last_attached = -1;
    return store_read_cab(slot) == 0 ? index : -1;
}

int store_attach_archive(session_t* session, const char* path, int kind)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (!path) {
        error("store_attach_archive: path to archive is not defined");
        return -1;
    }
    std::string full;
    if (path[0] == '/')
        full = path;
    else if (session->scope)
        full =
            env_get_string(session, "TEMP_FOLDER") + "/" + (session->scope->id ? session->scope->id : "") + "/" + path;
    else
        full = env_get_string(session, "ENGINE_DIR") + "/" + path;
    print_log("store_attach_archive: try to open %s", full.c_str());
    // Archives go to the running layer's cab, cabs always to the root.
    cab_t* owner = session->scope ? static_cast<cab_t*>(session->scope) : &session->cab;
    int32_t index;
    cab_t* slot = attached_slot(owner, &index);
    if (!slot) {
        error("store_attach_archive: cab->attached allocation failed");
        return -1;
    }
    slot->file = nullptr;
    slot->last_attached = -1;
    slot->kind = kind;
    return store_read_archive(slot, full.c_str(), kind) == 0 ? index : -1;
}

int store_attach_cabs(session_t* session)
{
    if (!session) {
        error("store_attach_cabs: session is null");
        return -1;
    }
    const char* property = "__ATTACHED_CABS";
    std::string list = env_get_string(session, property);
    if (list.empty()) {
        print_log("store_attach_cabs: property %s is not defined or set to NULL. Skip action.", property);
        return 0;
    }
    // Entries are taken from the right, so the last one is attached first.
    for (bool more = true; more;) {
        std::string entry;
        size_t semicolon = list.rfind(';');
        if (semicolon == std::string::npos) {
            more = false;
            entry = list;
            if (entry.empty())
                break;
        } else {
            entry = list.substr(semicolon + 1);
            list.erase(semicolon);
        }
        print_log("store_attach_cabs: entry detected %s", entry.c_str());
        size_t colon = entry.rfind(':');
        if (colon == std::string::npos) {
            error("store_attach_cabs: cab type is not recognized");
            return -1;
        }
        std::string path = entry.substr(0, colon);
        std::string type = entry.substr(colon + 1);
        int rc;
        if (strcasecmp(type.c_str(), "CAB") == 0) {
            rc = store_attach_cab(session, path.c_str());
        } else if (strcasecmp(type.c_str(), "RPM") == 0) {
            rc = store_attach_archive(session, path.c_str(), STORE_KIND_RPM);
        } else if (strcasecmp(type.c_str(), "TGZ") == 0) {
            rc = store_attach_archive(session, path.c_str(), STORE_KIND_TGZ);
        } else {
            error("store_read_cabs: unknow type of the CAB");
            return -1;
        }
        if (rc < 0)
            error("store_attach_cabs: loading of %s cab failed", path.c_str());
    }
    return 0;
}

// Lookup.

int store_component_match(const char* list, const char* sought)
{
    if (!list || !sought)
        return 0;
    const char* hit = strstr(list, sought);
    if (!hit)
        return 0;
    // The byte looked at is at the distance of the hit from the end, counted
    // from the start: a peculiar rule that packages rely on.
    size_t distance = strlen(hit);
    char c = list[distance];
    return c == '\0' || c == ';';
}

// Index of the first own entry of the component (and name, when given), or -1.
static int32_t find_own(cab_t* cab, const char* component, const char* name)
{
    if (!cab->items)
        return -1;
    for (int32_t i = 0; i <= cab->last_item; i++) {
        cab_item_t* item = &cab->items[i];
        if (!item->component || (name && !item->name))
            continue;
        if (name && strcmp(item->name, name) != 0)
            continue;
        if (store_component_match(item->component, component))
            return i;
    }
    return -1;
}

int store_component_exists(cab_t* cab, const char* component)
{
    if (!cab || !component) {
        error("store_component_exists: parameters are NULL");
        return 0;
    }
    return find_own(cab, component, nullptr) >= 0 ? 1 : 0;
}

int store_file_exists(cab_t* cab, const char* component, const char* name)
{
    if (!cab || !component || !name) {
        error("store_component_exists: parameters are NULL");
        return 0;
    }
    return find_own(cab, component, name) >= 0 ? 1 : 0;
}

// Walking.

int store_iter_init(cab_t* cab, store_iter_t* iterator)
{
    if (!cab) {
        error("store_iter_init: CAB is null");
        return -1;
    }
    if (!iterator) {
        error("store_iter_init: iterator is null");
        return -1;
    }
    iterator->cab = cab;
    iterator->state = 0;
    iterator->in_attached = 0;
    iterator->cab_index = -1;
    iterator->item_index = -1;
    return 0;
}

cab_item_t* store_iter_next(store_iter_t* iterator)
{
    if (!iterator) {
        error("store_iter_next: iterator is null");
        return nullptr;
    }
    if (iterator->state != 0) {
        error("store_iter_next: iterator is not inited");
        return nullptr;
    }
    cab_t* cab = iterator->cab;
    if (iterator->in_attached == 0) {
        print_log("In root");
        if (iterator->item_index < cab->last_item && cab->items)
            return &cab->items[++iterator->item_index];
        if (cab->last_attached < 0) {
            print_log("end");
            return nullptr;
        }
        print_log("go to attach");
        iterator->in_attached = 1;
        iterator->item_index = -1;
        iterator->cab_index = 0;
    }
    print_log("In attach");
    if (iterator->cab_index > cab->last_attached)
        return nullptr;
    print_log("store_iter_next: cab_index=%d", iterator->cab_index);
    cab_t* attached = &cab->attached[iterator->cab_index];
    if (!attached->items)
        return nullptr;
    int64_t last = (int64_t)attached->last_item - 1;
    if (iterator->item_index < last)
        return &attached->items[++iterator->item_index];
    if (iterator->item_index == last) {
        cab_item_t* item = &attached->items[last + 1];
        iterator->item_index = -1;
        iterator->cab_index++;
        return item;
    }
    return nullptr;
}

// Taking entries out.

// The entry's bytes start here in the file: store_base plus store_offset,
// cut to 32 bits signed; -1 when that is negative or there is no stream.
static int64_t item_position(cab_t* cab, const cab_item_t* item)
{
    int32_t position = (int32_t)(uint32_t)((uint64_t)cab->store_base + (uint64_t)item->store_offset);
    return cab->file && position >= 0 ? position : -1;
}

// Copies size bytes of the entry through the sink in blocks, zeros standing
// for what the file doesn't hold. 0, or -1 when the sink fails.
static int copy_item(cab_t* cab, const cab_item_t* item, int64_t size, int (*sink)(const char*, size_t, void*),
                     void* context)
{
    char* block = (char*)malloc(size < COPY_BLOCK ? (size_t)size + 1 : COPY_BLOCK);
    if (!block) {
        error("%s:%d: allocation of parameter failed", "src/store.cpp", __LINE__);
        return -1;
    }
    int64_t position = item_position(cab, item);
    bool readable = position >= 0 && fseeko(cab->file, position, SEEK_SET) == 0;
    int rc = 0;
    for (int64_t left = size; left > 0 && rc == 0;) {
        size_t want = left < COPY_BLOCK ? (size_t)left : COPY_BLOCK;
        size_t got = readable ? fread(block, 1, want, cab->file) : 0;
        if (got < want) {
            memset(block + got, 0, want - got);
            readable = false;
        }
        rc = sink(block, want, context);
        left -= (int64_t)want;
    }
    free(block);
    return rc;
}

int store_file_get_content(cab_t* cab, const char* component, const char* name, char** content, int* size,
                           cab_item_t* item)
{
    if (!cab || !component || !name || !content || !size) {
        LOG_NULL_PARAM();
        return -2;
    }
    int32_t index = find_own(cab, component, name);
    if (index >= 0) {
        cab_item_t* found = &cab->items[index];
        int32_t length = (int32_t)(uint32_t)(uint64_t)found->install_size;
        char* buffer = length >= 0 ? (char*)calloc((size_t)length + 1, 1) : nullptr;
        if (!buffer) {
            error("%s:%d: allocation of parameter failed", "src/store.cpp", __LINE__);
            return -1;
        }
        // A seek or read that fails leaves zeros: a truncated store reads as
        // its bytes followed by zeros.
        int64_t position = item_position(cab, found);
        if (position >= 0 && length > 0 && fseeko(cab->file, position, SEEK_SET) == 0) {
            size_t got = fread(buffer, 1, (size_t)length, cab->file);
            (void)got;
        }
        *content = buffer;
        *size = length;
        if (item) {
            int32_t kind = item->kind;
            *item = *found;
            item->kind = kind;
        }
        return index;
    }
    for (int32_t i = 0; cab->attached && i <= cab->last_attached; i++) {
        int rc = store_file_get_content(&cab->attached[i], component, name, content, size, item);
        if (rc >= 0)
            return rc;
    }
    return -2;
}

// Finds an entry as store_file_get_content does, without reading it: own
// entries, then each attached cab in turn. The index in *owner, -1 for an
// own entry whose size can't be held in memory, -2 for none.
static int locate_item(cab_t* cab, const char* component, const char* name, cab_t** owner)
{
    int32_t index = find_own(cab, component, name);
    if (index >= 0) {
        *owner = cab;
        return (int32_t)(uint32_t)(uint64_t)cab->items[index].install_size < 0 ? -1 : index;
    }
    for (int32_t i = 0; cab->attached && i <= cab->last_attached; i++) {
        int rc = locate_item(&cab->attached[i], component, name, owner);
        if (rc >= 0)
            return rc;
    }
    return -2;
}

static int write_to_stream(const char* data, size_t size, void* context)
{
    return fwrite(data, 1, size, (FILE*)context) == size ? 0 : -1;
}

int store_file_extract(session_t* session, cab_t* cab, const char* component, const char* name, const char* path)
{
    if (!cab || !component || !name || !path) {
        LOG_NULL_PARAM();
        return -1;
    }
    cab_t* owner = nullptr;
    int index = locate_item(cab, component, name, &owner);
    // The entry with index 0 of any cab is never extracted.
    if (index == 0) {
        print_log("store_file_extract: unable to get content of file/component: %s/%s - %d", name, component, index);
        return -1;
    }
    // An entry that isn't there leaves an empty file; callers test first.
    cab_item_t item = {};
    if (index > 0)
        item = owner->items[index];

    char* directory = get_dirname(path);
    if (directory && !exists(directory))
        folder_create(directory, 0775);
    free(directory);

    FILE* out = fopen(path, "wb");
    if (!out) {
        error("store_file_extract: can't create %s\n", path);
        return -1;
    }
    int rc = 0;
    if (index > 0)
        rc = copy_item(owner, &item, (int32_t)(uint32_t)(uint64_t)item.install_size, write_to_stream, out);
    if (fclose(out) != 0)
        rc = -1;
    if (rc != 0) {
        error("store_file_extract: can't write %s: %s", path, strerror(errno));
        return -1;
    }

    if (item.attrs) {
        int mode = oct_string2dec(item.attrs);
        if (mode < 0) {
            print_log("Can't get the permissions for: %s", name);
            return -1;
        }
        if (mode != 0)
            file_set_attr(path, mode);
    }
    return 0;
}

int store_item_copy(cab_t* cab, const cab_item_t* item, int (*sink)(const char*, size_t, void*), void* context)
{
    if (!cab || !item || !sink) {
        LOG_NULL_PARAM();
        return -1;
    }
    int32_t size = (int32_t)(uint32_t)(uint64_t)item->install_size;
    return size > 0 ? copy_item(cab, item, size, sink, context) : 0;
}

int64_t store_item_available(cab_t* cab, const cab_item_t* item)
{
    if (!cab || !item || !cab->file)
        return 0;
    int64_t position = item_position(cab, item);
    struct stat st;
    if (position < 0 || fstat(fileno(cab->file), &st) != 0 || st.st_size <= position)
        return 0;
    int64_t size = (int32_t)(uint32_t)(uint64_t)item->install_size;
    int64_t there = st.st_size - position;
    return size < there ? size : there;
}
