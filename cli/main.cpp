// kvctb: the command-line front of the accounting module.
#include "cli/app.h"

int main(int argc, char** argv) { return kvc::cli::RunKvctb(argc, argv); }
