#include "faults/allocation.h"

#include <cstdlib>
#include <new>

namespace faults {

namespace {

// Plain thread-local values: whatever needs no set-up can be used while the process begins.
thread_local std::size_t first_to_fail = 0;  // 0: none
thread_local bool all_fail = false;
thread_local std::size_t asked_for = 0;
thread_local std::ptrdiff_t live = 0;

bool fails() {
    if (first_to_fail == 0) return false;
    ++asked_for;
    return asked_for == first_to_fail || (all_fail && asked_for > first_to_fail);
}

}  // namespace

void fail_allocations(std::size_t first, Failing failing) {
    asked_for = 0;
    all_fail = failing == Failing::all_from_then;
    first_to_fail = first;
}

std::size_t stop_failing() {
    first_to_fail = 0;
    return asked_for;
}

std::ptrdiff_t live_allocations() { return live; }

}  // namespace faults

#ifdef ZENTADBPP_SANITIZED

// A sanitizer has an allocator of its own. The linker leads the calls of the library here (--wrap), and operator new is
// replaced.
extern "C" {
void* __real_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);

void* __wrap_malloc(std::size_t size) { return faults::fails() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return faults::fails() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
    return faults::fails() ? nullptr : __real_realloc(memory, size);
}
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return faults::fails() ? nullptr : __real_malloc(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
    if (void* memory = operator new(size, std::nothrow)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return operator new(size, std::nothrow);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

#else

// These take the place of the C library's for the whole process, and operator new comes here as well.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the names that the C library gives them
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) {
    if (faults::fails()) return nullptr;
    ++faults::live;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    if (faults::fails()) return nullptr;
    ++faults::live;
    return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    if (faults::fails()) return nullptr;
    if (memory == nullptr) ++faults::live;
    return __libc_realloc(memory, size);
}
void free(void* memory) {
    if (memory != nullptr) --faults::live;
    __libc_free(memory);
}
}

#endif
