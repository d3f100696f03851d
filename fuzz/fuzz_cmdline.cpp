// Feeds arbitrary argument vectors (NUL-separated words) to the command-line
// grammar and merges the result into an engine session.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cmdline.h"
#include "env.h"
#include "log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The grammar prints its complaints; keep the fuzzer's output readable.
    if (!freopen("/dev/null", "w", stdout))
        return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log_disable();
    std::vector<std::string> words{"kelm"};
    std::string word;
    for (size_t i = 0; i < size; i++) {
        if (data[i] == '\0') {
            words.push_back(word);
            word.clear();
        } else {
            word += (char)data[i];
        }
    }
    words.push_back(word);
    std::vector<char*> argv;
    for (auto& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    session_t engine, command_line;
    parse_command_line(&engine, (int)words.size(), argv.data(), &command_line);
    commandline_merge(&engine, &command_line.env);
    return 0;
}
