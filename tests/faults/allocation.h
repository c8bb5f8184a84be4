#pragma once

#include <cstddef>

namespace faults {

// Makes allocations of the calling thread fail, wherever they come from: operator new, and malloc, calloc and realloc
// of the library; without a sanitizer, of libdeflate and zlib as well.

enum class Failing : bool { one, all_from_then };

// From here on, allocation number `first`, counted from 1, fails.
void fail_allocations(std::size_t first, Failing failing);

// All succeed again. Answers how many were asked for.
std::size_t stop_failing();

// What the calling thread allocated less what it freed, since the process began; 0 under a sanitizer, which finds leaks
// itself.
std::ptrdiff_t live_allocations();

}  // namespace faults
