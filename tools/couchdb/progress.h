#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace zentadb {

// A bar on standard error if that is a terminal, otherwise a line now and then.
class Progress {
   public:
    explicit Progress(bool is_wanted);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // A total of 0 is unknown.
    void show(const std::string& doing, std::size_t done, std::size_t total);
    // What keeps it waiting, printed even without a bar.
    void waits(const std::string& why);
    void clear();

   private:
    bool is_shown_;
    bool on_terminal_;
    bool is_drawn_ = false;
    std::string doing_;
    std::chrono::steady_clock::time_point next_;
};

}  // namespace zentadb
