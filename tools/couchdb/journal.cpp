#include "couchdb/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "cli/failure.h"

namespace zentadb {

Journal::Journal(std::string path, const std::string& session) : path_(std::move(path)) {
    std::ifstream in(path_);
    std::string line;
    std::uintmax_t size = 0;
    // A line without its end was being written when the run was interrupted.
    while (std::getline(in, line) && !in.eof()) {
        Json json = Json::parse(line, nullptr, false);
        if (json.is_discarded() || (size == 0 && json != Json{{"session", session}})) break;
        if (size != 0 &&
            !(json.is_object() && json.contains("seq") && json["docs"].is_array() && json["known"].is_array()))
            break;
        if (size != 0) lines_.push_back(std::move(json));
        size += line.size() + 1;
    }
    in.close();
    if (size == 0) return;
    std::filesystem::resize_file(path_, size);
    out_.open(path_, std::ios::app);
}

void Journal::begin(const std::string& session) {
    // It holds data, which others may not be allowed to read in the store.
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    const int made = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made < 0) throw Failure(ExitCode::system, path_ + ": cannot be written", "Nothing was changed.");
    ::close(made);
    out_.open(path_, std::ios::app);
    add({{"session", session}});
}

void Journal::add(const Json& line) {
    if (out_ << line.dump() << '\n' << std::flush) return;
    throw Failure(ExitCode::system, path_ + ": cannot be written", "Nothing was changed.");
}

void Journal::remove() {
    out_.close();
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

}  // namespace zentadb
