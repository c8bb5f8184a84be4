#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zentadb {

// "-" for a path is standard input or output.

[[nodiscard]] bool file_exists(const std::string& path);
// Whether two paths lead to one file, also one that is not there yet.
[[nodiscard]] bool is_same_file(const std::string& a, const std::string& b);

// Far deeper than the library takes any text, and not too deep for a parser that calls itself for each level.
inline constexpr std::size_t deepest_text = 4000;
[[nodiscard]] bool is_nested_deeper(std::string_view text, std::size_t levels);

// All of a file. Throws Failure (input) if it is missing, contains a NUL byte, which no JSON text does, or is nested
// too deeply.
[[nodiscard]] std::string read_file(const std::string& path);

// Throws Failure (usage) if standard input is more than one of some files.
void refuse_shared_input(std::span<const std::string> paths);

// Replaces the text of a file, so that at any moment, whatever happens, the file holds all of the old text or all of
// the new one, and on return the new one is on the disk: it is written to a file beside it ("<path>.zentadb-new"),
// synced, and renamed. What an interrupted run left there is overwritten. The caller holds the file's lock.
void replace_file(const std::string& path, std::string_view text);

// Lets one process at a time change a file: at most one holds its lock ("<path>.zentadb-lock"), which ends
// with the object or the process, however that ends. Others wait for some seconds, then fail (busy).
class FileLock {
   public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

   private:
    std::string path_;
    int descriptor_ = -1;
};

// Writes a result: locks and replaces the file. Anything but a regular file, such as a pipe, is just written to.
void write_output(const std::string& path, std::string_view text);

}  // namespace zentadb
