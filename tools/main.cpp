#include <iostream>

#include "tools/run.h"

int main(int argc, char** argv) {
    return tool::run(argc, argv, std::cout, std::cerr);
}
