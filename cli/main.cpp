// pdtool's entry point.
#include "cli/cmd.h"

int main(int argc, char **argv) {
    return PdtoolMain(argc, argv);
}
