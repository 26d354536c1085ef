// The whole of kvctb behind main(): one run of the tool over its arguments.
#ifndef KVC_CLI_APP_H_
#define KVC_CLI_APP_H_

namespace kvc::cli {

// Runs kvctb with `argv` (argv[0] is the program name) and returns the exit
// code: 0 success, 1 the operation failed, 2 usage error, 3 error rows.
int RunKvctb(int argc, char** argv);

}  // namespace kvc::cli

#endif  // KVC_CLI_APP_H_
