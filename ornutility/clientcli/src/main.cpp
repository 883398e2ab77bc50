// SPDX-License-Identifier: Apache-2.0
// orncli: one subcommand from the command line, or the interactive menu without arguments.
#include "ORNCLI.h"
#include "ORNCLIInternal.h"

int main(int argc, char** argv) {
  ornwick::ornUtility::ORNCLI cli;
  if (argc <= 1) {
    ornwick::ornUtility::writeLine("Starting ORN Client utility...");
    ornwick::ornUtility::writeLine("Running in interactive mode");
    cli.run();
    return 0;
  }
  return cli.runCli(argc - 1, argv + 1);
}
