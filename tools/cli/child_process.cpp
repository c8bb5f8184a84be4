#include "cli/child_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "cli/failure.h"

namespace zentadb {

std::string output_of(const std::vector<std::string>& command, std::string_view input, const std::string& advice) {
    const auto make_file = [] { return std::unique_ptr<std::FILE, int (*)(std::FILE*)>(std::tmpfile(), std::fclose); };
    // Files and no pipes, so that neither side can wait for the other.
    const auto given = make_file();
    const auto printed = make_file();
    if (!given || !printed || std::fwrite(input.data(), 1, input.size(), given.get()) != input.size() ||
        std::fflush(given.get()) != 0) {
        throw Failure(ExitCode::system, "no space for temporary files");
    }
    std::rewind(given.get());

    std::vector<char*> arguments;
    std::vector<std::string> words = command;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(given.get()), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(printed.get()), STDOUT_FILENO);
    pid_t child = 0;
    const int failed = ::posix_spawnp(&child, words.front().c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw Failure(ExitCode::system, "cannot run " + words.front(), advice);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw Failure(ExitCode::system, words.front() + " failed");

    std::rewind(printed.get());
    std::string text;
    std::array<char, 1 << 16> piece{};
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), printed.get())) {
        text.append(piece.data(), count);
    }
    return text;
}

}  // namespace zentadb
