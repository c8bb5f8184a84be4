#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace zentadb {

// Reports what a run is doing once that takes over a second: on a terminal in a line that is erased again, elsewhere as
// a line on standard error now and then. Each run has one.
class Activity {
   public:
    static Activity& current();
    ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    // Nothing is shown before the start.
    void start(const std::string& what);
    // "reading trip.sync", until the next.
    void doing(const std::string& what);
    // Makes room for other output. Nothing is drawn after it until something else is being done.
    void yield();
    void stop();

   private:
    Activity() = default;
    void run();
    void write_line(const std::string& text) const;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::thread thread_;
    std::chrono::steady_clock::time_point begin_;
    std::string what_;
    int screen_ = -1;
    bool is_stopped_ = false;
    bool is_hidden_ = false;
    bool is_drawn_ = false;
};

}  // namespace zentadb
