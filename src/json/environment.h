#pragma once

namespace libzentadbpp {

// The switches a process can set in its environment. A switch is on when the variable exists, whatever its
// value; each is read once, on first use, and a later change has no effect. Safe to call from any thread.
[[nodiscard]] bool fast_float_enabled();    // "USE_FAST_FLOAT": write_real writes the shortest digits
[[nodiscard]] bool compact_form_enabled();  // "USE_BEL_FORMAT": results are written in the compact text form

}  // namespace libzentadbpp
