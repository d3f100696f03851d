// Feeds a dialog and a script of answers to show_dialog. The input up to its
// first NUL is the inside of a dialog element (titles, questions, lists,
// inputs, rules); the rest is typed at the prompt, line by line. The end of
// the script ends the dialog, as the end of standard input would.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "env.h"
#include "log.h"
#include "seq_dialog.h"
#include "xml.h"

static void fuzz_eof(void) {}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    log_disable();
    // What the dialog draws is of no interest here.
    if (!freopen("/dev/null", "w", stdout))
        return 0;
    dialog_set_eof_handler(fuzz_eof);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t cut = input.find('\0');
    std::string body = input.substr(0, cut);
    std::string answers = cut == std::string::npos ? std::string() : input.substr(cut + 1);

    std::string xml = "<dialog id=\"d\" clear_screen=\"false\">" + body + "</dialog>";
    document_t doc;
    xml_parse(xml.c_str(), &doc);
    if (doc.nodes_count > 0) {
        session_t session;
        env_set_string(&session, "CURRENT_DIALOG", "d");
        env_set_string(&session, "ONE", "1");
        FILE* in = answers.empty() ? fopen("/dev/null", "r") : fmemopen(answers.data(), answers.size(), "r");
        if (in) {
            dialog_set_input(in);
            show_dialog(&session, &doc.nodes[0]);
            dialog_set_input(nullptr);
            fclose(in);
        }
    }
    xml_free(&doc);
    return 0;
}
