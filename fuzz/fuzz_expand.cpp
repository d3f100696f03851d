// Feeds arbitrary operands to the expansion, against properties that refer
// to themselves and to each other.
#include <cstdlib>
#include <cstring>

#include "fuzz_session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    session_t* session = fuzz_session();
    std::string operand = fuzz_take_input(session, data, size);
    char* expanded = expand_operand(session, operand.c_str());
    free(expanded);
    char* copy = strdup(operand.c_str());
    char* decoded = env_replace_tags(copy);
    if (decoded != copy)
        free(decoded);
    free(copy);
    return 0;
}
