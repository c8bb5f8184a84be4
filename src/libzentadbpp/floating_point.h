#pragma once

#include <cfenv>

namespace libzentadbpp {

// The floating-point state that numbers are read and written in, whatever the host has set for its thread: a rounding
// mode, flushing to zero, exceptions that trap. Contents are named by the hash of their text, so it must not depend on
// any of these. The host's state is put back afterwards, with its exception flags.
class DefaultFloatingPoint {
   public:
    DefaultFloatingPoint() noexcept {
        std::fegetenv(&host_);
        std::fesetenv(FE_DFL_ENV);
    }
    ~DefaultFloatingPoint() { std::fesetenv(&host_); }
    DefaultFloatingPoint(const DefaultFloatingPoint&) = delete;
    DefaultFloatingPoint& operator=(const DefaultFloatingPoint&) = delete;

   private:
    std::fenv_t host_;
};

}  // namespace libzentadbpp
