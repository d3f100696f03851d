// The wizard's debug channel to an external listener.
#include "seq_debug.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "utils.h"
#include "xml.h"

static const char* nz_empty(const char* text)
{
    return text ? text : "";
}

std::string seq_debug_message(session_t* session, node_t* action)
{
    seq_item_t* current = session->seqs.current;
    const char* step = "";
    const char* anchor = "";
    if (current && current->current_step)
        step = anchor = nz_empty(current->current_step->id);
    if (current && current->current_sub)
        anchor = nz_empty(current->current_sub->id);
    if (session->scope)
        step = nz_empty(session->scope->id);
    char* text =
        get_string("sequence:%s\nstep:%s\nanchor:%s\naction:%s\n\n%s", current ? nz_empty(current->filename) : "", step,
                   anchor, nz_empty(xml_node_get_key(action, "id")), env_dump(session).c_str());
    std::string message = text ? text : "";
    free(text);
    return message;
}

void dump_debug_info(session_t* session, node_t* action)
{
    if (!session || !action || !env_exists(session, "__debug_wizard__"))
        return;
    print_log("Dumping environment\n");
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        print_log("socket error");
        return;
    }
    std::string path = env_get_string(session, "tmp_dir") + "/socket";
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    socklen_t length = (socklen_t)(strlen(address.sun_path) + 2);
    if (connect(fd, (struct sockaddr*)&address, length) != 0) {
        print_log("connection error %s", path.c_str());
        close(fd);
        return;
    }
    std::string message = seq_debug_message(session, action);
    if (send(fd, message.data(), message.size(), MSG_NOSIGNAL) < 0)
        print_log("send error");
    close(fd);
}
