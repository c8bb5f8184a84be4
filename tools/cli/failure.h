#pragma once

#include <stdexcept>
#include <string>

#include "cli/exit_code.h"

namespace zentadb {

// Ends the run. `what` says what is wrong, `advice` what the user can do about it.
class Failure : public std::runtime_error {
   public:
    Failure(ExitCode exit_code, const std::string& what, std::string advice = {})
        : std::runtime_error(what), exit_code_(exit_code), advice_(std::move(advice)) {}

    [[nodiscard]] ExitCode exit_code() const noexcept { return exit_code_; }
    [[nodiscard]] const std::string& advice() const noexcept { return advice_; }

   private:
    ExitCode exit_code_;
    std::string advice_;
};

}  // namespace zentadb
