// The cab writer, for package authors' tools and for tests: the table, the
// store area and the tail, written so that the reader in store.cpp finds
// them from the end of the file.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "log.h"
#include "store.h"

#define COPY_BLOCK 1048576
// Every position in a cab is computed in 32 signed bits.
#define CAB_LIMIT 0x7FFFFFFFLL

static const unsigned char CAB_MAGIC[4] = {0xAA, 0xAA, 0xAA, 0xAA};
static const unsigned char CAB_END_MARK[4] = {0xBB, 0xBB, 0xBB, 0xBB};
// The reader ignores the separators; the writer puts two zero bytes.
static const unsigned char SEPARATOR[2] = {0, 0};

static uint32_t cksum_table[256];

static void cksum_init(void)
{
    if (cksum_table[1])
        return;
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t crc = i << 24;
        for (int bit = 0; bit < 8; bit++)
            crc = crc & 0x80000000u ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
        cksum_table[i] = crc;
    }
}

uint32_t store_cksum_update(uint32_t crc, const unsigned char* data, size_t size)
{
    cksum_init();
    for (size_t i = 0; i < size; i++)
        crc = (crc << 8) ^ cksum_table[(crc >> 24) ^ data[i]];
    return crc;
}

uint32_t store_cksum_finish(uint32_t crc, uint64_t total)
{
    cksum_init();
    for (; total; total >>= 8)
        crc = (crc << 8) ^ cksum_table[(crc >> 24) ^ (total & 0xFF)];
    return ~crc;
}

__attribute__((format(printf, 3, 4))) static int write_failure(char* message, int message_size, const char* format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    error("store_write_cab: %s", text);
    if (message && message_size > 0)
        snprintf(message, (size_t)message_size, "%s", text);
    return -1;
}

// What the writer learns about one entry before writing the table.
struct entry_plan_t {
    int64_t size;
    std::string cksum;
};

// The entry's bytes, block by block, from its file or its data.
static int for_each_block(const cab_entry_src_t* entry, int (*sink)(const unsigned char*, size_t, void*), void* context,
                          int64_t* total)
{
    *total = 0;
    if (!entry->source) {
        if (entry->data && entry->data_size > 0) {
            *total = entry->data_size;
            return sink((const unsigned char*)entry->data, (size_t)entry->data_size, context);
        }
        return 0;
    }
    FILE* in = fopen(entry->source, "rb");
    if (!in)
        return -1;
    std::vector<unsigned char> block(COPY_BLOCK);
    int rc = 0;
    size_t got;
    while (rc == 0 && (got = fread(block.data(), 1, block.size(), in)) > 0) {
        *total += (int64_t)got;
        rc = sink(block.data(), got, context);
    }
    if (ferror(in))
        rc = -1;
    fclose(in);
    return rc;
}

static int cksum_sink(const unsigned char* data, size_t size, void* context)
{
    uint32_t* crc = (uint32_t*)context;
    *crc = store_cksum_update(*crc, data, size);
    return 0;
}

static int stream_sink(const unsigned char* data, size_t size, void* context)
{
    return fwrite(data, 1, size, (FILE*)context) == size ? 0 : -1;
}

static size_t text_length(const char* text)
{
    return text ? strlen(text) : 0;
}

static bool put_bytes(FILE* out, const void* data, size_t size)
{
    return size == 0 || fwrite(data, 1, size, out) == size;
}

static bool put_number(FILE* out, int64_t value)
{
    unsigned char* bytes = pack_i64(value);
    bool ok = bytes && put_bytes(out, bytes, 8);
    free(bytes);
    return ok;
}

static bool put_string_field(FILE* out, const char* text)
{
    size_t length = text_length(text);
    return put_bytes(out, SEPARATOR, 2) && put_number(out, (int64_t)length) && put_bytes(out, text, length);
}

static bool put_number_field(FILE* out, int64_t value)
{
    return put_bytes(out, SEPARATOR, 2) && put_number(out, value);
}

int store_write_cab(FILE* out, const cab_entry_src_t* entries, int count, char* message, int message_size)
{
    if (!out || (count > 0 && !entries) || count < 0)
        return write_failure(message, message_size, "invalid parameters");

    std::vector<entry_plan_t> plans((size_t)count);
    int64_t table_size = 4 + 8 + 2 + 4;
    int64_t store_size = 0;
    for (int i = 0; i < count; i++) {
        const cab_entry_src_t* entry = &entries[i];
        entry_plan_t* plan = &plans[(size_t)i];
        if (entry->source) {
            struct stat st;
            if (stat(entry->source, &st) != 0)
                return write_failure(message, message_size, "can't read %s: %s", entry->source, strerror(errno));
            if (!S_ISREG(st.st_mode))
                return write_failure(message, message_size, "%s is not a regular file", entry->source);
            plan->size = st.st_size;
        } else {
            plan->size = entry->data ? entry->data_size : 0;
        }
        if (plan->size < 0)
            return write_failure(message, message_size, "entry %d has a negative size", i);
        if (!entry->cksum) {
            uint32_t crc = 0;
            int64_t total;
            if (for_each_block(entry, cksum_sink, &crc, &total) != 0)
                return write_failure(message, message_size, "can't read %s: %s", entry->source, strerror(errno));
            plan->cksum = std::to_string(store_cksum_finish(crc, (uint64_t)total));
        } else {
            plan->cksum = entry->cksum;
        }
        table_size += 14 * 2 + 10 * 8 + 4 * 8;
        table_size +=
            (int64_t)(text_length(entry->component) + text_length(entry->name) + text_length(entry->install_name) +
                      text_length(entry->target_name) + text_length(entry->install_uid) + text_length(entry->group_id) +
                      text_length(entry->attrs) + plan->cksum.size() + text_length(entry->condition));
        store_size += plan->size;
    }

    if (fseeko(out, 0, SEEK_END) != 0)
        return write_failure(message, message_size, "can't seek in the output: %s", strerror(errno));
    int64_t start = ftello(out);
    if (start < 0 || start + table_size + store_size + 16 > CAB_LIMIT)
        return write_failure(message, message_size,
                             "the cab would end at %lld bytes; a cab must end below 2 GiB (%lld bytes)",
                             (long long)(start + table_size + store_size + 16), CAB_LIMIT);

    bool ok = put_bytes(out, CAB_MAGIC, 4) && put_number(out, (int64_t)count - 1) && put_bytes(out, SEPARATOR, 2);
    int64_t offset = 0;
    for (int i = 0; ok && i < count; i++) {
        const cab_entry_src_t* entry = &entries[i];
        const entry_plan_t* plan = &plans[(size_t)i];
        ok = put_string_field(out, entry->component) && put_string_field(out, entry->name) &&
             put_string_field(out, entry->install_name) && put_string_field(out, entry->target_name) &&
             put_string_field(out, nullptr) && put_number_field(out, entry->type) &&
             put_number_field(out, plan->size) && put_string_field(out, entry->install_uid) &&
             put_string_field(out, entry->group_id) && put_string_field(out, entry->attrs) &&
             put_string_field(out, plan->cksum.c_str()) && put_number_field(out, plan->size) &&
             put_number_field(out, offset) && put_string_field(out, entry->condition);
        offset += plan->size;
    }
    ok = ok && put_bytes(out, CAB_END_MARK, 4);
    if (!ok)
        return write_failure(message, message_size, "can't write the table: %s", strerror(errno));

    for (int i = 0; i < count; i++) {
        int64_t total;
        if (for_each_block(&entries[i], stream_sink, out, &total) != 0)
            return write_failure(message, message_size, "can't copy %s: %s",
                                 entries[i].source ? entries[i].source : "data", strerror(errno));
        if (total != plans[(size_t)i].size)
            return write_failure(message, message_size, "%s changed while it was written", entries[i].source);
    }
    // The two tail numbers add up to the distance from the magic to the end.
    if (!put_number(out, table_size) || !put_number(out, store_size + 16) || fflush(out) != 0)
        return write_failure(message, message_size, "can't write the tail: %s", strerror(errno));
    return 0;
}

int store_write_cab_file(const char* path, const cab_entry_src_t* entries, int count, bool append, char* message,
                         int message_size)
{
    if (!path)
        return write_failure(message, message_size, "no output file");
    if (append) {
        // Appending behind existing content: on failure the file is cut back.
        FILE* out = fopen(path, "ab");
        if (!out)
            return write_failure(message, message_size, "can't open %s: %s", path, strerror(errno));
        fseeko(out, 0, SEEK_END);
        int64_t before = ftello(out);
        int rc = store_write_cab(out, entries, count, message, message_size);
        if (fclose(out) != 0 && rc == 0)
            rc = write_failure(message, message_size, "can't write %s: %s", path, strerror(errno));
        if (rc != 0 && before >= 0 && truncate(path, before) != 0)
            error("store_write_cab: can't cut %s back to %lld bytes", path, (long long)before);
        return rc;
    }
    // A new cab is written beside its place and renamed over it at the end,
    // so a failure leaves an older file untouched.
    std::string temporary = std::string(path) + ".tmp" + std::to_string(getpid());
    FILE* out = fopen(temporary.c_str(), "wb");
    if (!out)
        return write_failure(message, message_size, "can't create %s: %s", temporary.c_str(), strerror(errno));
    int rc = store_write_cab(out, entries, count, message, message_size);
    if (fclose(out) != 0 && rc == 0)
        rc = write_failure(message, message_size, "can't write %s: %s", temporary.c_str(), strerror(errno));
    if (rc == 0 && rename(temporary.c_str(), path) != 0)
        rc =
            write_failure(message, message_size, "can't rename %s to %s: %s", temporary.c_str(), path, strerror(errno));
    if (rc != 0)
        unlink(temporary.c_str());
    return rc;
}
