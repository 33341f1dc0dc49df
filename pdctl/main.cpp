// pdctl's entry point.
#include "pdctl/pdctl.h"

int main(int argc, char **argv) {
    return pdctl::PdctlMain(argc, argv);
}
