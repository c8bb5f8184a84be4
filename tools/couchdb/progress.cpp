#include "couchdb/progress.h"

#include <algorithm>
#include <iostream>

#include "cli/activity.h"
#include "cli/terminal.h"

namespace zentadb {

Progress::Progress(bool is_wanted) : is_shown_(is_wanted), on_terminal_(is_terminal(std::cerr)) {
    using namespace std::chrono_literals;
    if (!on_terminal_) next_ = std::chrono::steady_clock::now() + 5s;
}

void Progress::show(const std::string& doing, std::size_t done, std::size_t total) {
    using namespace std::chrono_literals;
    const auto now = std::chrono::steady_clock::now();
    Activity::current().yield();
    if (!is_shown_ || (now < next_ && (!on_terminal_ || (done != total && doing == doing_)))) return;
    doing_ = doing;
    next_ = now + (on_terminal_ ? 100ms : 30s);
    if (!on_terminal_) {
        std::cerr << "zentadb: " << doing << ' ' << done << (total > 0 ? "/" + std::to_string(total) : "") << '\n';
        return;
    }
    std::string line = "\r\x1b[K" + doing + " ";
    if (total > 0) {
        constexpr std::size_t width = 30;
        const std::size_t filled = std::min(done, total) * width / total;
        line.append("[").append(filled, '#').append(width - filled, '.').append("] ");
        line.append(std::to_string(done)).append("/").append(std::to_string(total));
    } else {
        line.append(std::to_string(done));
    }
    std::cerr << line << std::flush;
    is_drawn_ = true;
}

void Progress::waits(const std::string& why) {
    clear();
    std::cerr << painted(Paint::yellow, "zentadb: ", std::cerr) << printable(why) << '\n';
}

void Progress::clear() {
    if (is_drawn_) std::cerr << "\r\x1b[K" << std::flush;
    is_drawn_ = false;
}

}  // namespace zentadb
