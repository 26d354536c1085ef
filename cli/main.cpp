// kvctb: the command-line front of the accounting module. The interrupt
// handlers belong to the process, so they are installed here and not by
// RunKvctb, which the tests also call in their own process.
#include "cli/app.h"
#include "cli/signals.h"

int main(int argc, char** argv) {
  kvc::cli::InstallInterruptHandlers();
  return kvc::cli::RunKvctb(argc, argv);
}
