// Feeds arbitrary package data to the sequence loader. The input holds up to
// three parts separated by NUL bytes: sequence.ini, the sequence file it may
// name ("s.xml"), and the document of a layer "l" whose cab is config/l.cab.
// Each run writes both cabs to a private directory, chooses the sequence and
// reads its layers and steps.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "store.h"

static std::string dir;

static void remove_work_dir(void)
{
    std::string command = "rm -rf '" + dir + "'";
    if (system(command.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", dir.c_str());
}

static std::string work_dir(void)
{
    if (dir.empty()) {
        char templ[] = "/tmp/kelm-fuzz-seq-XXXXXX";
        dir = mkdtemp(templ);
        mkdir((dir + "/config").c_str(), 0755);
        mkdir((dir + "/tmp").c_str(), 0755);
        atexit(remove_work_dir);
    }
    return dir;
}

static cab_entry_src_t entry(const char* component, const char* name, const std::string& data)
{
    cab_entry_src_t source = {};
    source.component = component;
    source.name = name;
    source.data = data.data();
    source.data_size = (int64_t)data.size();
    return source;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log_disable();
    std::string input(reinterpret_cast<const char*>(data), size);
    std::string parts[3];
    size_t at = 0;
    for (int i = 0; i < 3 && at <= input.size(); i++) {
        size_t end = input.find('\0', at);
        parts[i] = input.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? input.size() + 1 : end + 1;
    }

    std::string dir = work_dir();
    cab_entry_src_t root[] = {entry("_internal_", "sequence.ini", parts[0]), entry("_internal_", "s.xml", parts[1]),
                              entry("_internal_", "m.xml", parts[2])};
    static const std::string file_bytes = "x";
    cab_entry_src_t layer[] = {entry("_internal_", "l.xml", parts[2]), entry("_internal_32_", "a/b", file_bytes),
                               entry("data", "c", file_bytes)};
    if (store_write_cab_file((dir + "/root.cab").c_str(), root, 3, false, nullptr, 0) != 0 ||
        store_write_cab_file((dir + "/config/l.cab").c_str(), layer, 3, false, nullptr, 0) != 0)
        return 0;

    session_t session;
    if (store_read_header(&session, &session.cab, (dir + "/root.cab").c_str()) != 0)
        return 0;
    env_set_string(&session, "CONFIG_DIR", dir + "/config");
    env_set_string(&session, "TEMP_FOLDER", dir + "/tmp");
    env_set_string(&session, "ENGINE_DIR", dir);
    env_set_string(&session, "LANG", "de");
    env_set_string(&session, "LOCALES_MAPPING", "de:x;y:z");
    env_set_string(&session, "ADDITIONAL_LOCALES", "x");
    if (init_sequence(&session) == 0 && session.seqs.seq)
        sequence_execute_container(&session, &session.seqs.seq[0]);
    return 0;
}
