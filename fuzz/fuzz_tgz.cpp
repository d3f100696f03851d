// Feeds arbitrary bytes to the tar reader of attached TGZ archives. zlib
// reads bytes that aren't gzip as they are, so the input is the tar stream
// itself (or a gzip stream of one). Members unpack into a private folder
// that is emptied after every input.
#include <ftw.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "compress.h"
#include "log.h"

static int g_fd = -1;
static std::string g_archive;
static std::string g_out;

static int remove_entry(const char* path, const struct stat*, int, struct FTW* walk)
{
    if (walk->level > 0)
        remove(path);
    return 0;
}

static void fuzz_cleanup(void)
{
    nftw(g_out.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
    rmdir(g_out.c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (g_fd < 0) {
        g_fd = memfd_create("fuzz-tgz", 0);
        char dir[] = "/tmp/kelm-fuzz-tgz-XXXXXX";
        if (g_fd < 0 || !mkdtemp(dir))
            abort();
        g_archive = "/proc/self/fd/" + std::to_string(g_fd);
        g_out = dir;
        atexit(fuzz_cleanup);
    }
    // The reader joins member names to the folder as they are, by design: a
    // name with ".." would reach outside it, so such inputs are not tried.
    if (memmem(data, size, "..", 2))
        return 0;
    log_disable();
    if (ftruncate(g_fd, 0) != 0 || (size && pwrite(g_fd, data, size, 0) != (ssize_t)size))
        abort();
    decompress_file(g_archive.c_str(), g_out.c_str());
    nftw(g_out.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
