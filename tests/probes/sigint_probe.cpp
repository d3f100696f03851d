// A stand-in for a dialog: sets the interrupt return point, then waits for a
// line. Lets the end-to-end tests answer the interrupt prompt on a real
// terminal before the wizard exists.
#include <csetjmp>
#include <cstdio>
#include <string>

#include "log.h"
#include "session.h"

int main(int argc, char** argv)
{
    if (argc > 1)
        log_init(nullptr, argv[1]);
    session_install_sigint();
    if (sigsetjmp(position, 1) != 0)
        printf("back at the dialog\n");
    position_is_set = 1;
    printf("dialog> ");
    fflush(stdout);
    char line[256];
    if (!fgets(line, sizeof line, stdin))
        return 9;
    printf("answered: %s", line);
    return 0;
}
