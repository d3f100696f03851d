// Feeds arbitrary conditions to the evaluator, against properties that refer
// to themselves and to each other.
#include "cond.h"
#include "fuzz_session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    session_t* session = fuzz_session();
    std::string condition = fuzz_take_input(session, data, size);
    int result = cond_is_true(condition.c_str(), session);
    (void)result;
    return 0;
}
