// Cabs: the engine's container files. A cab holds a table of entries, each
// a file belonging to one or more components, and a store area with the
// bytes. The table is found from the end of the file, so a cab may stand
// alone or be appended to any other file.
//
// On disk (all numbers 8 bytes, big-endian; P is the position of the magic):
//   P: AA AA AA AA, index of the last entry, 2-byte separator, the entries,
//   BB BB BB BB, the store area, and at the very end two tail numbers whose
//   sum is the distance from P to the end of the file.
// Each entry is 14 fields, each behind a 2-byte separator: component, name,
// install_name, target_name, a duplicated string (ignored), type (number),
// install_size (number), install_uid, group_id, attrs, cksum, store_size
// (number), store_offset (number), condition. A string is an 8-byte length
// and that many bytes; a length below 1 means null.
#ifndef KELM_STORE_H
#define KELM_STORE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct session_t;

// Kinds of entries and of attached archives.
#define STORE_KIND_CAB 0
#define STORE_KIND_RPM 1
#define STORE_KIND_TGZ 2

// Component of the engine's control files.
#define STORE_INTERNAL "_internal_"

// One entry of a cab. Strings are owned by the record and live as long as
// the process, except install_name of an archive member, which points at a
// literal.
struct cab_item_t {
    char* component;
    char* name;
    char* install_name;
    char* target_name;
    int32_t type;
    int64_t install_size;
    char* install_uid;
    char* group_id;
    char* attrs;
    char* cksum;
    int64_t store_size;
    int64_t store_offset;
    char* condition;
    int32_t kind; // 0 real cab entry, 1 RPM archive, 2 TGZ archive
};

// One opened cab, or one attached archive (file null, kind set). A record
// must start default-constructed (or zero-filled) before it is opened.
// attached grows as cabs are attached: a pointer to one of its slots is
// valid only until the next attachment.
struct cab_t {
    FILE* file = nullptr;
    cab_item_t* items = nullptr;
    int32_t last_item = -1;
    int64_t store_base = 0;
    int32_t last_attached = -1;
    cab_t* attached = nullptr;
    int32_t attached_capacity = 0;
    int32_t kind = 0;
};

// A walk over a cab's entries and then over those of its attached cabs.
struct store_iter_t {
    cab_t* cab;
    int32_t state;
    int32_t in_attached;
    int32_t cab_index;
    int32_t item_index;
};

// Opens the file and reads its table into the cab; 0 or -1. The session is
// not used.
int store_read_header(session_t* session, cab_t* cab, const char* filename);
// Reads the table from cab->file, located from the end of the file; 0 or -1.
int store_read_cab(cab_t* cab);
// Fills the cab with an archive's single member and a closing all-zero
// record; kind is STORE_KIND_RPM or STORE_KIND_TGZ. 0 or -1.
int store_read_archive(cab_t* cab, const char* path, int kind);

// Attaches what the property __ATTACHED_CABS lists ("path:CAB;path:RPM;..."),
// last entry first. A failing entry is logged and skipped; -1 only for a
// malformed list or a null session.
int store_attach_cabs(session_t* session);
// Attaches one cab to the session's root cab; the new slot's index or -1.
int store_attach_cab(session_t* session, const char* path);
// Attaches one archive to the current layer's cab, or to the root cab when
// no layer runs; the new slot's index or -1.
int store_attach_archive(session_t* session, const char* path, int kind);

// 1 when an own entry of the cab belongs to the component, else 0.
int store_component_exists(cab_t* cab, const char* component);
// 1 when an own entry of the cab has this component and name, else 0.
int store_file_exists(cab_t* cab, const char* component, const char* name);
// The membership test of lookups: finds the first occurrence of sought in
// list, and holds when list's byte at the length of the text from that
// occurrence to the end is NUL or ';'. 1 or 0.
int store_component_match(const char* list, const char* sought);

// Prepares a walk from the cab's first entry; 0 or -1.
int store_iter_init(cab_t* cab, store_iter_t* iterator);
// The next entry, owned by its cab, or null at the end. Attached archives
// give their member and then an all-zero record that walkers must skip.
cab_item_t* store_iter_next(store_iter_t* iterator);

// Reads an entry into a new buffer of *size + 1 bytes ending in a zero,
// looking in the cab's own entries first and then in each attached cab. The
// entry's index within the cab where it was found, -1 when memory ran out,
// -2 when the entry exists nowhere. When item is given, the entry's fields
// (pointers included, kind excepted) are copied into it.
int store_file_get_content(cab_t* cab, const char* component, const char* name, char** content, int* size,
                           cab_item_t* item);
// Writes an entry to the file path and applies its attrs; 0 or -1. An entry
// with index 0 in its cab is refused; an unknown entry leaves an empty file.
int store_file_extract(session_t* session, cab_t* cab, const char* component, const char* name, const char* path);

// Decodes 8 big-endian bytes; a null buffer is reported and gives -1.
int64_t unpack_i64(const unsigned char* buffer);
// A new 9-byte buffer: the 8 big-endian bytes of value and a zero. The
// caller frees it.
unsigned char* pack_i64(int64_t value);
// Zero-fills size bytes of buffer, writes the decimal digits that fit and
// returns buffer.
char* ultoa(unsigned long value, char* buffer, int size);

// Streams an entry's install_size bytes through sink in blocks of up to
// 1 MiB, zeros standing for bytes the file doesn't hold. 0, or -1 when the
// sink gives non-zero or memory runs out.
int store_item_copy(cab_t* cab, const cab_item_t* item, int (*sink)(const char* data, size_t size, void* context),
                    void* context);
// How many of the entry's bytes the file really holds (less than its size
// for a truncated store).
int64_t store_item_available(cab_t* cab, const cab_item_t* item);

// Releases everything the cab holds, attached cabs included, closes its
// streams and leaves it as a default-constructed record. The engine keeps
// its cabs for the whole process; tools, tests and re-opening use this.
void store_release(cab_t* cab);

// Writing cabs, for the authors' tool and for tests.

// One entry to write: the fields as they go to the table, and the bytes.
// install_size, store_size and store_offset are computed by the writer.
// Bytes come from the file source when it is set, else from data/data_size
// (none when both are unset). Null and empty strings are both stored as
// absent and read back as null.
struct cab_entry_src_t {
    const char* component;
    const char* name;
    const char* install_name;
    const char* target_name;
    int32_t type;
    const char* install_uid;
    const char* group_id;
    const char* attrs;
    const char* cksum; // null: computed from the bytes, as the cksum tool does
    const char* condition;
    const char* source;
    const char* data;
    int64_t data_size;
};

// Writes a cab of count entries to the open stream, at its current end, so
// that it may follow any other content. 0 or -1 (reported through error, with
// the reason in message when given, of size message_size).
int store_write_cab(FILE* out, const cab_entry_src_t* entries, int count, char* message, int message_size);
// Writes a cab to the file path, replacing it, or appending to it when
// append is set. 0 or -1, as store_write_cab.
int store_write_cab_file(const char* path, const cab_entry_src_t* entries, int count, bool append, char* message,
                         int message_size);
// The checksum of the cksum tool: start with crc 0, feed the bytes with
// store_cksum_update, and finish with the total length.
uint32_t store_cksum_update(uint32_t crc, const unsigned char* data, size_t size);
uint32_t store_cksum_finish(uint32_t crc, uint64_t total);

#endif
