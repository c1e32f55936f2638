// bgp-attr-census: real routing tables (MRT dumps) or a synthetic one through the library, with
// what they cost; `bgp-attr-census --help` lists the options.
#include "census/Cli.h"

int main(int argc, char** argv) {
    return Census::censusMain(argc, argv, stdout, stderr, /*exitWhenDone=*/true);
}
