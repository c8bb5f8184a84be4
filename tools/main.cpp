#include <cstdlib>

#include "commands.h"

int main(int count, char** arguments) {
    // The library would write its results in a form that this program does not look into. It reads it all the same.
    ::unsetenv("USE_BEL_FORMAT");
    zentadb::Program program;
    zentadb::add_update(program);
    zentadb::add_read(program);
    zentadb::add_merge(program);
    return program.run(count, arguments);
}
