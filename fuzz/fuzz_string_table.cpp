// Feeds arbitrary bytes to the string table as a package: the bytes before
// the first NUL are strings.ini, the rest one string file that the lines and
// includes may name (component "c", file "a.xml"). Loads, then binds the
// default language and the language of the first line.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "env.h"
#include "log.h"
#include "store.h"
#include "string_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int fd = memfd_create("kelm-fuzz-cab", 0);
    if (fd < 0)
        return 0;
    log_disable();
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t split = input.find('\0');
    std::string ini = input.substr(0, split);
    std::string xml = split == std::string::npos ? std::string() : input.substr(split + 1);

    cab_entry_src_t entries[2] = {};
    entries[0].component = "_internal_";
    entries[0].name = "strings.ini";
    entries[0].data = ini.data();
    entries[0].data_size = (int64_t)ini.size();
    entries[1].component = "c";
    entries[1].name = "a.xml";
    entries[1].data = xml.data();
    entries[1].data_size = (int64_t)xml.size();
    if (ftruncate(fd, 0) != 0)
        return 0;
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (store_write_cab_file(path.c_str(), entries, 2, false, nullptr, 0) != 0)
        return 0;

    session_t session;
    env_init(&session);
    env_set_string(&session, "ENGINE_DIR", "/nonexistent-kelm-fuzz");
    if (store_read_header(&session, &session.cab, path.c_str()) != 0)
        return 0;
    string_table_init(&session);
    string_table_bind(&session);
    if (session.string_last >= 0) {
        env_set_string(&session, "LANG", session.string_langs[0]);
        string_table_bind(&session);
    }
    return 0;
}
