#include <csignal>
#include <cstdlib>

#include "commands.h"

int main(int count, char** arguments) {
    // This program does not parse results in the compact form. It still reads stores in that form.
    ::unsetenv("USE_BEL_FORMAT");
    // A write beyond a limit must fail like any other, not end the process.
    std::signal(SIGXFSZ, SIG_IGN);
    zentadb::Program program;
    zentadb::add_update(program);
    zentadb::add_read(program);
    zentadb::add_merge(program);
    zentadb::add_status(program);
    zentadb::add_docs(program);
    zentadb::add_show(program);
    zentadb::add_log(program);
    zentadb::add_graph(program);
    zentadb::add_changes(program);
    zentadb::add_arrays(program);
    zentadb::add_conflicts(program);
    zentadb::add_resolve(program);
    zentadb::add_prune(program);
    zentadb::add_verify(program);
    zentadb::add_diff(program);
    zentadb::add_patch(program);
    zentadb::add_compress(program);
    zentadb::add_uncompress(program);
    zentadb::add_completion(program);
    zentadb::add_push(program);
    zentadb::add_pull(program);
    return program.run(count, arguments);
}
