#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

namespace libzentadbpp {

// Memory that lives as long as one call or one opened text: allocation moves a pointer, and everything is freed
// at once. Nothing placed here is destroyed, so only trivially destructible types may be. Not thread-safe.
class Arena {
   public:
    Arena() = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    [[nodiscard]] void* allocate(std::size_t bytes, std::size_t alignment) {
        const std::size_t padding = -reinterpret_cast<std::uintptr_t>(free_) & (alignment - 1);
        if (padding > left_ || bytes > left_ - padding) return allocate_block(bytes);
        std::byte* place = free_ + padding;
        free_ = place + bytes;
        left_ -= padding + bytes;
        return place;
    }

    // Room for so many, without values.
    template <class T>
    [[nodiscard]] std::span<T> make(std::size_t count) {
        static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
        if (count == 0) return {};
        return {static_cast<T*>(allocate(count * sizeof(T), alignof(T))), count};
    }

    template <class T>
    [[nodiscard]] std::span<T> copy(std::span<const T> values) {
        const std::span<T> place = make<T>(values.size());
        std::uninitialized_copy(values.begin(), values.end(), place.begin());
        return place;
    }

    [[nodiscard]] std::string_view copy(std::string_view text);

   private:
    [[nodiscard]] void* allocate_block(std::size_t bytes);
    [[nodiscard]] std::byte* new_block(std::size_t bytes);

    static constexpr std::size_t first_block = 4096;
    static constexpr std::size_t largest_block = std::size_t{8} << 20;

    std::vector<std::unique_ptr<std::byte[]>> blocks_;
    std::byte* free_ = nullptr;
    std::size_t left_ = 0;
    std::size_t next_block_ = first_block;
};

}  // namespace libzentadbpp
