// kelm: the installer engine. All of the work is in the engine library.
#include "driver.h"

int main(int argc, char** argv)
{
    return driver_main(argc, argv);
}
