#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace libzentadbpp {

// A stack for walking nested values: the first levels need no memory, and no depth of input can overflow the stack of
// the thread.
template <class T, std::size_t near_levels>
class SmallStack {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_default_constructible_v<T>);

   public:
    SmallStack() = default;  // leaves the near levels as they are: clearing them would cost more than a short walk
    SmallStack(const SmallStack&) = delete;
    SmallStack& operator=(const SmallStack&) = delete;

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] T& top() { return items_[size_ - 1]; }
    void push(const T& item) {
        if (size_ == capacity_) grow();
        items_[size_++] = item;
    }
    void pop() { --size_; }

   private:
    void grow() {
        auto wider = std::make_unique_for_overwrite<T[]>(capacity_ * 2);
        std::copy_n(items_, size_, wider.get());
        far_ = std::move(wider);
        items_ = far_.get();
        capacity_ *= 2;
    }

    T near_[near_levels];
    std::unique_ptr<T[]> far_;
    T* items_ = near_;
    std::size_t size_ = 0;
    std::size_t capacity_ = near_levels;
};

// The same for a bit a level, where texts of any depth are only passed over.
class BitStack {
   public:
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool top() const { return (last_ & 1) != 0; }
    void push(bool bit) {
        if (size_ != 0 && size_ % word_bits == 0) full_.push_back(last_);
        last_ = last_ << 1 | static_cast<std::uint64_t>(bit);
        ++size_;
    }
    void pop() {
        last_ >>= 1;
        if (--size_ == 0 || size_ % word_bits != 0) return;
        last_ = full_.back();
        full_.pop_back();
    }
    void clear() {
        full_.clear();
        size_ = 0;
    }

   private:
    static constexpr std::size_t word_bits = 64;

    std::vector<std::uint64_t> full_;
    std::uint64_t last_ = 0;  // the innermost levels, the last one lowest
    std::size_t size_ = 0;
};

}  // namespace libzentadbpp
