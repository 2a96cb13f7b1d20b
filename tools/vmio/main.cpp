// vmio: the command-line host of the library (see `vmio --help`).
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return vmio::cli::RunCommand(args, std::cin, std::cout, std::cerr);
}
