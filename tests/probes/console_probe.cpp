// Prints each argument through the console printer, so that the end-to-end
// tests can look at the wrapping on a pipe and on real terminals of chosen
// widths. "--dashes" prints a rule; "--read" waits for a line and echoes it.
#include <cstdio>
#include <cstring>

#include "console.h"

int main(int argc, char** argv)
{
    for (int k = 1; k < argc; k++) {
        if (strcmp(argv[k], "--dashes") == 0) {
            print_dashes();
        } else if (strcmp(argv[k], "--read") == 0) {
            char line[256];
            if (!fgets(line, sizeof line, stdin))
                return 9;
            printf("answered: %s", line);
        } else {
            print_string("%s", argv[k]);
        }
    }
    fflush(stdout);
    return 0;
}
