// kvctb: the command-line front of the accounting module. The signal
// dispositions belong to the process, so they are set here and not by
// RunKvctb, which the tests also call in their own process.
#include <csignal>

#include "cli/app.h"
#include "cli/signals.h"

int main(int argc, char** argv) {
  kvc::cli::InstallInterruptHandlers();
  // A write past the process's file-size limit (ulimit -f) would otherwise
  // end the process with a core dump; ignored, the write fails with EFBIG,
  // the database rolls the transaction back and the user reads why.
  std::signal(SIGXFSZ, SIG_IGN);
  return kvc::cli::RunKvctb(argc, argv);
}
