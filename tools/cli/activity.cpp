#include "cli/activity.h"

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

#include "cli/table.h"
#include "cli/terminal.h"

namespace zentadb {

namespace {

constexpr const char* erase_line = "\r\x1b[K";

}  // namespace

Activity::~Activity() { stop(); }

// Past the stream, which makes room for what others write, and also while standard error is silenced.
void Activity::write_line(const std::string& text) const {
    static_cast<void>(::write(screen_, text.data(), text.size()) == 0);
}

Activity& Activity::current() {
    static Activity activity;
    return activity;
}

void Activity::start(const std::string& what) {
    begin_ = std::chrono::steady_clock::now();
    what_ = what;
    screen_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (screen_ >= 0) thread_ = std::thread([this] { run(); });
}

void Activity::doing(const std::string& what) {
    const std::lock_guard lock(mutex_);
    what_ = what;
    is_hidden_ = false;
}

void Activity::yield() {
    const std::lock_guard lock(mutex_);
    if (is_drawn_) write_line(erase_line);
    is_drawn_ = false;
    is_hidden_ = true;
}

void Activity::stop() {
    if (!thread_.joinable()) return;
    yield();
    {
        const std::lock_guard lock(mutex_);
        is_stopped_ = true;
    }
    wake_.notify_one();
    thread_.join();
    ::close(screen_);
}

void Activity::run() {
    using namespace std::chrono_literals;
    const bool on_terminal = is_terminal(std::cerr);
    const std::chrono::milliseconds pause = on_terminal ? 200ms : 30s;
    auto next = begin_ + (on_terminal ? 1s : 5s);
    std::unique_lock lock(mutex_);
    while (!wake_.wait_until(lock, next, [this] { return is_stopped_; })) {
        const auto now = std::chrono::steady_clock::now();
        if (!is_hidden_) {
            const std::string line =
                printable(what_) + ", " +
                std::to_string(std::chrono::duration_cast<std::chrono::seconds>(now - begin_).count()) + " s";
            write_line(on_terminal ? erase_line + cut(line, terminal_width(std::cerr).value_or(80) - 1)
                                   : "zentadb: " + line + "\n");
            is_drawn_ = on_terminal;
        }
        next = now + pause;
    }
}

}  // namespace zentadb
