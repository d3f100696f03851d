// Feeds arbitrary bytes to the environment file reader.
#include <cstddef>
#include <cstdint>
#include <string>

#include "env.h"
#include "log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log_disable();
    session_t session;
    std::string buffer(reinterpret_cast<const char*>(data), size);
    env_restore_from_buffer(&session, buffer.data(), (int)buffer.size());
    (void)env_dump(&session);
    return 0;
}
