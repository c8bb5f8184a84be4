#pragma once

#include "host/program.h"

// Each puts a command into the program. What it does stands in the file of its name in commands/ (or couchdb/).

namespace zentadb {

void add_update(Program& program);
void add_read(Program& program);
void add_merge(Program& program);

}  // namespace zentadb
