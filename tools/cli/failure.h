#pragma once

#include <stdexcept>
#include <string>

namespace zentadb {

// How a run ended, as its exit code, by which scripts distinguish the kinds of failure. docs/command-line.md explains
// them.
enum class Outcome {
    done = 0,
    found = 1,        // with --exit-code: there are conflicts, changes, ...
    usage = 2,        // the command line is invalid
    input = 3,        // a file, document or revision is missing, or an input is invalid
    damaged = 4,      // the store is damaged
    unmergeable = 5,  // the two are not copies of one store
    system = 6,       // reading or writing failed
    busy = 7,         // another process holds the store
    network = 8,      // the server cannot be reached, or fails temporarily
    refused = 9,      // the server refuses
};

// Ends the run. `what` says what is wrong, `advice` what the user can do about it.
class Failure : public std::runtime_error {
   public:
    Failure(Outcome outcome, const std::string& what, std::string advice = {})
        : std::runtime_error(what), outcome_(outcome), advice_(std::move(advice)) {}

    [[nodiscard]] Outcome outcome() const noexcept { return outcome_; }
    [[nodiscard]] const std::string& advice() const noexcept { return advice_; }

   private:
    Outcome outcome_;
    std::string advice_;
};

}  // namespace zentadb
