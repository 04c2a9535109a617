#include <iostream>

#include "CommandLine.h"

int main(int argc, char** argv) {
    return zemctl::runCommandLine(argc, argv, std::cout, std::cerr);
}
