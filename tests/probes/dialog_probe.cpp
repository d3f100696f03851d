// Shows the dialogs of one XML file on the console, one after another, the
// way a wizard step does, and then writes the resulting properties. Lets the
// end-to-end tests answer real dialogs through a pipe or on a terminal.
//
//   dialog_probe [--log FILE] [--out FILE] [--set NAME=VALUE]... DIALOGS.xml
//
// Dialog elements are taken at the top level and inside interface elements.
// Before each, CURRENT_DIALOG is set to its id. The properties go to --out
// as NAME=VALUE lines (DASHES_STRING left out); the exit status is 0, or 3
// when a dialog failed.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "env.h"
#include "log.h"
#include "seq_dialog.h"
#include "session.h"
#include "utils.h"
#include "xml.h"

static void collect_dialogs(node_t* node, std::vector<node_t*>* out)
{
    if (!node->name)
        return;
    if (!strcmp(node->name, "dialog")) {
        out->push_back(node);
        return;
    }
    if (!strcmp(node->name, "interface"))
        for (int i = 0; i < node->childs_count; i++)
            collect_dialogs(&node->childs[i], out);
}

int main(int argc, char** argv)
{
    session_t session;
    const char* out_path = nullptr;
    const char* file = nullptr;
    std::vector<std::string> sets;
    for (int i = 1; i < argc; i++) {
        if (!strcmp(argv[i], "--log") && i + 1 < argc)
            log_init(nullptr, argv[++i]);
        else if (!strcmp(argv[i], "--out") && i + 1 < argc)
            out_path = argv[++i];
        else if (!strcmp(argv[i], "--set") && i + 1 < argc)
            sets.push_back(argv[++i]);
        else
            file = argv[i];
    }
    if (!file) {
        fprintf(stderr, "usage: dialog_probe [--log FILE] [--out FILE] [--set NAME=VALUE]... DIALOGS.xml\n");
        return 2;
    }
    for (const std::string& set : sets) {
        size_t eq = set.find('=');
        if (eq != std::string::npos)
            env_set_string(&session, set.substr(0, eq), set.substr(eq + 1));
    }
    char* text = get_file(file, false);
    if (!text) {
        fprintf(stderr, "dialog_probe: cannot read %s\n", file);
        return 2;
    }
    document_t doc;
    xml_parse(text, &doc);
    std::vector<node_t*> dialogs;
    for (int i = 0; i < doc.nodes_count; i++)
        collect_dialogs(&doc.nodes[i], &dialogs);

    session_install_sigint();
    int status = 0;
    for (node_t* dialog : dialogs) {
        const char* id = xml_node_get_key(dialog, "id");
        env_set_string(&session, "CURRENT_DIALOG", id ? id : "");
        if (show_dialog(&session, dialog) != 0)
            status = 3;
    }

    FILE* out = out_path ? fopen(out_path, "w") : stdout;
    if (out) {
        for (const auto& [name, value] : session.env)
            if (name != "DASHES_STRING")
                fprintf(out, "%s=%s\n", name.c_str(), value.c_str());
        if (out != stdout)
            fclose(out);
    }
    xml_free(&doc);
    free(text);
    return status;
}
