// velomar: command-line test bench for the filter library.
#include <iostream>

#include "host.h"

int main(int argc, char** argv) {
    return host::RunCli(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
