#pragma once

#include <cfenv>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace libzentadbpp {

// The floating-point state that numbers are read and written in, whatever the host has set for its thread: a rounding
// mode, flushing to zero, exceptions that trap. Contents are named by the hash of their text, so it must not depend on
// any of these. The host's state is put back afterwards, with its exception flags.
class DefaultFloatingPoint {
   public:
    DefaultFloatingPoint() noexcept {
        if (is_default_) return;
        std::fegetenv(&host_);
        std::fesetenv(FE_DFL_ENV);
    }
    ~DefaultFloatingPoint() {
        if (!is_default_) std::fesetenv(&host_);
#if defined(__SSE2__)
        _mm_setcsr(control_);
#endif
    }
    DefaultFloatingPoint(const DefaultFloatingPoint&) = delete;
    DefaultFloatingPoint& operator=(const DefaultFloatingPoint&) = delete;

   private:
#if defined(__SSE2__)
    // Saving and setting the whole state takes as long as a short query, and nearly always it is the default.
    unsigned control_ = _mm_getcsr();
    bool is_default_ = (control_ & ~unsigned{_MM_EXCEPT_MASK}) == _MM_MASK_MASK && std::fegetround() == FE_TONEAREST;
#else
    static constexpr bool is_default_ = false;  // not known
#endif
    std::fenv_t host_;
};

}  // namespace libzentadbpp
