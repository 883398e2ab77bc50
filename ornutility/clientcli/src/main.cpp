// orncli: one subcommand from the command line, or the interactive menu without arguments.
#include <iostream>

#include "ORNCLI.h"

int main(int argc, char** argv) {
  ornwick::ornUtility::ORNCLI cli;
  if (argc <= 1) {
    std::cout << "Starting ORN Client utility..." << '\n' << std::flush;
    std::cout << "Running in interactive mode" << '\n' << std::flush;
    cli.run();
    return 0;
  }
  return cli.runCli(argc - 1, argv + 1);
}
