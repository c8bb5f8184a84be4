#include "store/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>
#include <utility>

#include "cli/activity.h"
#include "cli/failure.h"
#include "cli/warning.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

namespace fs = std::filesystem;

class Descriptor {
   public:
    explicit Descriptor(int value) : value_(value) {}
    ~Descriptor() {
        if (value_ >= 0) ::close(value_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    [[nodiscard]] int get() const { return value_; }
    [[nodiscard]] int release() { return std::exchange(value_, -1); }
    // Closes now, and returns whether all went well: some file systems report a failed write only here.
    [[nodiscard]] bool close() { return ::close(release()) == 0; }

   private:
    int value_;
};

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    const int reason = errno;
    std::string advice;
    if (reason == ENOSPC || reason == EDQUOT) advice = "Nothing was changed. Free space on the disk and try again.";
    if (reason == EFBIG)
        advice = "Nothing was changed. A limit (ulimit -f) or the file system does not allow a larger file.";
    if (reason == EACCES || reason == EPERM || reason == EROFS) {
        advice = "Nothing was changed. The directory must be writable as well, because files are replaced in one step.";
    }
    throw Failure(ExitCode::system, path + ": " + what + ": " + std::strerror(reason), advice);
}

// Where links lead: replacing a link would leave what it points to as it was.
std::string real_path(const std::string& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    // A link to what is not there yet is still one here.
    constexpr int most_links = 40;
    for (int links = 0; links < most_links && !error && fs::is_symlink(real, error); ++links) {
        real = fs::weakly_canonical(real.parent_path() / fs::read_symlink(real, error), error);
    }
    return error && error != std::errc::no_such_file_or_directory ? path : real.string();
}

void write_all(int descriptor, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail(path, "cannot be written");
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void sync_directory(const std::string& file) {
    const std::string directory = fs::path(file).parent_path().string();
    const Descriptor opened(::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Not all file systems can sync a directory; those keep the order of changes themselves.
    if (opened.get() >= 0) static_cast<void>(::fsync(opened.get()));
}

void write_in_place(const std::string& path, std::string_view text) {
    Descriptor opened(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (opened.get() < 0) fail(path, "cannot be opened");
    write_all(opened.get(), text, path);
    if (!opened.close()) fail(path, "cannot be written");
}

std::chrono::milliseconds patience() {
    const char* given = std::getenv("ZENTADB_LOCK_WAIT");
    const double seconds = given != nullptr ? std::strtod(given, nullptr) : 10;
    return std::chrono::milliseconds(seconds > 0 && seconds < 1e6 ? static_cast<long>(seconds * 1000) : 0);
}

}  // namespace

bool file_exists(const std::string& path) {
    std::error_code error;
    const bool exists = fs::exists(path, error);
    // Links that lead nowhere for good, unlike one whose file is yet to be made.
    if (error == std::errc::too_many_symbolic_link_levels) {
        throw Failure(ExitCode::system, path + ": " + error.message());
    }
    return exists;
}

bool is_same_file(const std::string& a, const std::string& b) { return real_path(a) == real_path(b); }

void refuse_shared_input(std::span<const std::string> paths) {
    if (std::ranges::count(paths, "-") < 2) return;
    throw Failure(ExitCode::usage, "only one file can come from standard input");
}

bool is_nested_deeper(std::string_view text, std::size_t levels) {
    std::size_t depth = 0;
    bool is_inside_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (is_inside_string) {
            if (character == '\\') ++at;
            is_inside_string = character != '"';
        } else if (character == '"') {
            is_inside_string = true;
        } else if (character == '{' || character == '[') {
            if (++depth > levels) return true;
        } else if ((character == '}' || character == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

std::string read_file(const std::string& path) {
    if (path != "-" && !file_exists(path)) throw Failure(ExitCode::input, path + ": no such file");
    const Descriptor opened(path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const std::string name = input_name(path);
    Activity::current().doing("reading " + name);
    if (::isatty(opened.get()) == 1) Activity::current().yield();  // somebody is typing
    const auto fail_reading = [&name](const char* what) {
        throw Failure(ExitCode::system, name + ": " + what + ": " + std::strerror(errno));
    };
    if (opened.get() < 0) fail_reading("cannot be opened");
    std::string text;
    struct stat status {};
    if (::fstat(opened.get(), &status) == 0 && S_ISREG(status.st_mode)) {
        text.reserve(static_cast<std::size_t>(status.st_size) + 1);
    }
    for (;;) {
        constexpr std::size_t piece = 1 << 16;
        const std::size_t before = text.size();
        text.resize(std::max(before + piece, text.capacity()));
        const ssize_t count = ::read(opened.get(), text.data() + before, text.size() - before);
        text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail_reading("cannot be read");
        if (count == 0) break;
    }
    if (text.find('\0') != std::string::npos)
        throw Failure(ExitCode::input, name + ": not a text: contains a NUL byte");
    if (is_nested_deeper(text, deepest_text)) throw Failure(ExitCode::input, name + ": nested too deeply");
    return text;
}

void replace_file(const std::string& given, std::string_view text) {
    const std::string path = real_path(given);
    Activity::current().doing("writing " + given);
    struct stat old {};
    const bool exists = ::stat(path.c_str(), &old) == 0;

    if (exists && old.st_nlink > 1) {
        warn(given + ": the file has other names (hard links), which keep the old text");
    }
    const std::string fresh = path + ".zentadb-new";
    ::unlink(fresh.c_str());
    // Only those who can open the old text may open the new one, even before its owner and mode are set.
    const mode_t mode = exists ? old.st_mode & 0700 : 0666;
    Descriptor opened(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (opened.get() < 0) fail(fresh, "cannot be created");
    try {
        if (exists) {
            // Where the owner cannot be kept, as for all but root, the file is the caller's from now on.
            static_cast<void>(::fchown(opened.get(), old.st_uid, old.st_gid) == 0);
            if (::fchmod(opened.get(), old.st_mode & 07777) != 0) fail(fresh, "cannot be given its permissions");
        }
        write_all(opened.get(), text, fresh);
        if (::fsync(opened.get()) != 0) fail(fresh, "cannot be written to the disk");
        if (!opened.close()) fail(fresh, "cannot be written");
        if (::rename(fresh.c_str(), path.c_str()) != 0) fail(path, "cannot be replaced");
    } catch (...) {
        ::unlink(fresh.c_str());
        throw;
    }
    sync_directory(path);
}

FileLock::FileLock(const std::string& path) : path_(real_path(path) + ".zentadb-lock") {
    const auto until = std::chrono::steady_clock::now() + patience();
    for (;;) {
        Descriptor opened(::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (opened.get() < 0) fail(path_, "cannot be created");
        if (::flock(opened.get(), LOCK_EX | LOCK_NB) == 0) {
            // The previous holder may have removed the file meanwhile. Then nobody else sees this lock.
            struct stat held {};
            struct stat there {};
            if (::fstat(opened.get(), &held) == 0 && ::stat(path_.c_str(), &there) == 0 &&
                held.st_ino == there.st_ino && held.st_dev == there.st_dev) {
                descriptor_ = opened.release();
                return;
            }
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            fail(path_, "cannot be locked");
        } else if (std::chrono::steady_clock::now() >= until) {
            throw Failure(
                ExitCode::busy, path + ": another process is changing it",
                "Nothing was changed. Try again when it is done, or set ZENTADB_LOCK_WAIT to the seconds to wait.");
        } else {
            Activity::current().doing("waiting for another process to finish with " + path);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
}

FileLock::~FileLock() {
    // Removed while it is held, so that nobody locks a file that is about to disappear.
    ::unlink(path_.c_str());
    ::close(descriptor_);
}

void write_output(const std::string& path, std::string_view text) {
    if (path == "-") {
        std::cout << text;
        return;
    }
    std::error_code error;
    if (file_exists(path) && !fs::is_regular_file(path, error)) {
        write_in_place(path, text);
        return;
    }
    const FileLock lock(path);
    replace_file(path, text);
}

}  // namespace zentadb
