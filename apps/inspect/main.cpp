#include "inspect/inspect.h"

int main(int argc, char** argv) {
    return fleifeisa::inspect::inspectMain(argc, argv);
}
