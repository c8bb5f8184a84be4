#pragma once

#include <cstddef>
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
    Arena(Arena&&) = default;
    Arena& operator=(Arena&&) = default;

    [[nodiscard]] void* allocate(std::size_t bytes, std::size_t alignment);

    template <class T>
    [[nodiscard]] std::span<T> copy(std::span<const T> values) {
        static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
        if (values.empty()) return {};
        T* place = static_cast<T*>(allocate(values.size_bytes(), alignof(T)));
        std::uninitialized_copy(values.begin(), values.end(), place);
        return {place, values.size()};
    }

    [[nodiscard]] std::string_view copy(std::string_view text);

   private:
    static constexpr std::size_t first_block = 4096;
    static constexpr std::size_t largest_block = std::size_t{1} << 20;

    std::vector<std::unique_ptr<std::byte[]>> blocks_;
    std::byte* free_ = nullptr;
    std::size_t left_ = 0;
    std::size_t next_block_ = first_block;
};

}  // namespace libzentadbpp
