// Feeds arbitrary bytes to the reader of a shell's dumped environment.
#include <cstddef>
#include <cstdint>

#include "env.h"
#include "log.h"
#include "shellexec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log_disable();
    session_t session;
    shellexec_var_t* list = shellexec_var_list_new();
    shellexec_var_append(list, "A", "1");
    _shellexec_parse_envlist_buffer(&session, reinterpret_cast<const char*>(data), size, list);
    shellexec_var_list_free(list);
    return 0;
}
