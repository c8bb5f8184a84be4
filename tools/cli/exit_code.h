#pragma once

namespace zentadb {

// How a run ended, by which scripts distinguish the kinds of failure. docs/command-line.md explains the codes.
enum class ExitCode {
    done = 0,
    found = 1,        // with --exit-code: there are conflicts, changes, ...
    usage = 2,        // the command line is invalid
    input = 3,        // a file, document or revision is missing, or an input is invalid
    damaged = 4,      // the store is damaged
    unmergeable = 5,  // the two are not copies of one store
    system = 6,       // reading or writing failed
    busy = 7,         // another process holds the store
    network = 8,      // the server cannot be reached, or fails temporarily
    refused = 9,      // the server refuses
};

}  // namespace zentadb
