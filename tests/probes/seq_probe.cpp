// Loads a package's sequence the way the engine does before it runs the
// wizard, and prints what was loaded: the chosen sequence, its layers and its
// steps with their nested modules, and the global properties its layers'
// strings set. Lets the end-to-end tests check loading on
// real packages before the wizard itself runs.
//
// usage: seq_probe LOG CAB [NAME=VALUE ...]
#include <cstdio>
#include <cstring>
#include <string>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "session.h"
#include "store.h"

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: seq_probe LOG CAB [NAME=VALUE ...]\n");
        return 2;
    }
    log_init(nullptr, argv[1]);
    session_t session;
    if (store_read_header(&session, &session.cab, argv[2]) != 0) {
        fprintf(stderr, "cannot read %s\n", argv[2]);
        return 1;
    }
    for (int i = 3; i < argc; i++) {
        const char* equals = strchr(argv[i], '=');
        if (equals)
            env_set_string(&session, std::string(argv[i], equals - argv[i]), std::string(equals + 1));
    }
    if (init_sequence(&session) != 0 || !session.seqs.seq) {
        printf("no sequence\n");
        return 1;
    }
    seq_item_t* sequence = &session.seqs.seq[0];
    printf("sequence %s\n", sequence->filename);
    int result = sequence_execute_container(&session, sequence);
    for (int i = 0; i < sequence->layers_count; i++)
        printf("layer %s\n", sequence->seq_layers[i]->id);
    for (int i = 0; i < sequence->steps_count; i++) {
        step_t* step = &sequence->seq_steps[i];
        printf("step %s name=%s doc=%s subs=", step->id, step->name ? step->name : "", step->doc ? "yes" : "no");
        for (int k = 0; k < step->subs_count; k++)
            printf("%s%s%s", k ? "," : "", step->sub[k].id ? step->sub[k].id : "", step->sub[k].doc ? "+" : "");
        printf("\n");
    }
    // Global properties named after a layer: what its strings gave the
    // whole wizard.
    for (const auto& property : session.env)
        for (int i = 0; i < sequence->layers_count; i++)
            if (property.first.rfind(sequence->seq_layers[i]->id, 0) == 0)
                printf("global %s=%s\n", property.first.c_str(), property.second.c_str());
    sequence_release_all(&session);
    return result == 0 ? 0 : 1;
}
