// Cabs: the engine's container files. A cab holds a table of entries, each
// a file belonging to one or more components, and a store area with the
// bytes. This header holds the records; the reader's functions are declared
// here as the store unit grows.
#ifndef KELM_STORE_H
#define KELM_STORE_H

#include <cstdint>
#include <cstdio>

struct session_t;

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

// One opened cab, or one attached archive (file null, kind set).
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

#endif
