// Feeds arbitrary bytes to the cab reader as a root cab and as an attached
// one, then walks every entry and reads and extracts what it can.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log.h"
#include "session.h"
#include "store.h"

// Entries larger than this are looked up but not read: the reader would
// allocate their full size, which is the intended behaviour and no finding.
static const int64_t READ_LIMIT = 1 << 20;

static int g_fd = -1;
static std::string g_cab_path;
static std::string g_out_path;

static std::string g_out_dir;

static void fuzz_cleanup(void)
{
    unlink(g_out_path.c_str());
    rmdir(g_out_dir.c_str());
}

static void fuzz_setup(void)
{
    g_fd = memfd_create("fuzz-cab", 0);
    if (g_fd < 0)
        abort();
    g_cab_path = "/proc/self/fd/" + std::to_string(g_fd);
    char dir[] = "/tmp/kelm-fuzz-store-XXXXXX";
    if (!mkdtemp(dir))
        abort();
    g_out_dir = dir;
    g_out_path = g_out_dir + "/out";
    atexit(fuzz_cleanup);
}

// True when an entry of that name, in the cab or an attached one, is too
// large to read: lookups may land on it rather than on the walked entry.
static bool has_large_namesake(const cab_t* cab, const char* name)
{
    for (int32_t i = 0; cab->items && i <= cab->last_item; i++) {
        const cab_item_t* item = &cab->items[i];
        if (item->name && strcmp(item->name, name) == 0 && (int32_t)item->install_size > READ_LIMIT)
            return true;
    }
    for (int32_t i = 0; cab->attached && i <= cab->last_attached; i++)
        if (has_large_namesake(&cab->attached[i], name))
            return true;
    return false;
}

static void read_entry(session_t* session, cab_t* root, const cab_item_t* item)
{
    if (!item->component || !item->name)
        return;
    store_component_exists(root, item->component);
    store_file_exists(root, item->component, item->name);
    if (has_large_namesake(root, item->name))
        return;
    char* content = nullptr;
    int size = 0;
    cab_item_t copy = {};
    store_file_get_content(root, item->component, item->name, &content, &size, &copy);
    free(content);
    store_file_extract(session, root, item->component, item->name, g_out_path.c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (g_fd < 0)
        fuzz_setup();
    log_disable();
    if (ftruncate(g_fd, 0) != 0 || (size && pwrite(g_fd, data, size, 0) != (ssize_t)size))
        abort();

    session_t session;
    env_map_t& env = session.env;
    env["ENGINE_DIR"] = "/nonexistent-kelm-fuzz";
    if (store_read_header(&session, &session.cab, g_cab_path.c_str()) != 0)
        return 0;
    // The same bytes once more as an attached cab, and an archive beside it.
    store_attach_cab(&session, g_cab_path.c_str());
    store_attach_archive(&session, "/nonexistent-kelm-fuzz/a.rpm", STORE_KIND_RPM);

    store_iter_t iterator;
    store_iter_init(&session.cab, &iterator);
    // Every walk ends after the entries it can see; the guard only turns a
    // hang into a finding.
    int64_t limit = 16 + (int64_t)session.cab.last_item + 1;
    for (int32_t i = 0; i <= session.cab.last_attached; i++)
        limit += (int64_t)session.cab.attached[i].last_item + 2;
    for (int64_t steps = 0;; steps++) {
        cab_item_t* item = store_iter_next(&iterator);
        if (!item)
            break;
        if (steps > limit)
            abort();
        read_entry(&session, &session.cab, item);
    }
    return 0;
}
