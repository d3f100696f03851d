// An example library plug-in, used by the demo installer and documented in
// docs/plugins.md.
//
// A plug-in is a shared library with functions of the form
//     extern "C" int name(session_t* session);
// that a sequence calls through an action of type "plugin_c". The function
// runs inside the engine process, with the engine's session in hand; it
// reads and writes properties with the engine's own functions, which the
// kelm executable exports, so the library doesn't link the engine. Its
// result becomes EXIT_CODE. The library is closed right after the call, so
// nothing of it may stay behind in the session.
#include <string>

#include "env.h"
#include "log.h"
#include "session.h"

// Splits a ";"-separated list, dropping empty pieces.
static std::string next_piece(const std::string& list, size_t* at)
{
    while (*at < list.size() && list[*at] == ';')
        (*at)++;
    size_t end = list.find(';', *at);
    if (end == std::string::npos)
        end = list.size();
    std::string piece = list.substr(*at, end - *at);
    *at = end;
    return piece;
}

// Summarises the components checked in the checkbox dialog named by the
// property DEMO_COMPONENTS_DIALOG: for each checked id it reads the
// display name from the property component_<id>_name (a string of the
// package's string table), and writes the names, joined by ", ", to
// COMPONENTS_SUMMARY and the count to COMPONENTS_COUNT. Returns the count,
// or -1 when the dialog isn't named.
extern "C" int demo_summarize_components(session_t* session)
{
    std::string dialog = env_get_string(session, "DEMO_COMPONENTS_DIALOG");
    if (dialog.empty()) {
        error("demo_summarize_components: DEMO_COMPONENTS_DIALOG is not set");
        return -1;
    }
    std::string checked = env_get_string(session, dialog + "_cb");
    std::string summary;
    int count = 0;
    size_t at = 0;
    while (at < checked.size()) {
        std::string id = next_piece(checked, &at);
        if (id.empty())
            continue;
        std::string name = expand_string(session, env_get_string(session, "component_" + id + "_name"));
        summary += (count ? ", " : "") + (name.empty() ? id : name);
        count++;
    }
    print_log("demo_summarize_components: %d components checked: %s", count, summary.c_str());
    env_set_string(session, "COMPONENTS_SUMMARY", summary);
    env_set_string(session, "COMPONENTS_COUNT", std::to_string(count));
    return count;
}
