#pragma once

#include "cli/program.h"

// Each adds a command to the program. The file of its name in commands/ (or couchdb/) defines what it does.

namespace zentadb {

void add_update(Program& program);
void add_read(Program& program);
void add_merge(Program& program);
void add_status(Program& program);
void add_docs(Program& program);
void add_show(Program& program);
void add_log(Program& program);
void add_graph(Program& program);
void add_changes(Program& program);
void add_arrays(Program& program);
void add_conflicts(Program& program);
void add_resolve(Program& program);
void add_prune(Program& program);
void add_verify(Program& program);
void add_diff(Program& program);
void add_patch(Program& program);
void add_compress(Program& program);
void add_uncompress(Program& program);
void add_completion(Program& program);
void add_push(Program& program);
void add_pull(Program& program);

}  // namespace zentadb
