// The daemon's command line, read before anything starts.
//
//   quen [-d] [--root DIR]                    runs the daemon (-d: info logging)
//   quen --check-config [FILE] [--root DIR] [--json]
//   quen --help | --version
//
// --help, --version and --check-config print and return at once, starting nothing. Other long
// options and stray arguments are dropped with a one-line warning on standard error; short
// options go on to the daemon's own option parser (which warns about those it ignores).
// Threads: main thread, before any other exists.
#pragma once

#include <vector>

// Reads argv. When the command is one that ends at once, returns its exit status (0 help and
// version; 0/1/2 from the check; 2 for a usage error). Otherwise returns -1 and fills
// `daemonArgs` with argv[0] and the short options for the daemon, null-terminated.
int QuenCommandLine(int argc, char** argv, std::vector<char*>& daemonArgs);
