#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace libzentadbpp {

struct FreeDeleter {
    void operator()(void* memory) const noexcept { std::free(memory); }
};
using CText = std::unique_ptr<char, FreeDeleter>;

// A growing text in malloc memory, so that a finished result is handed to the host without another copy.
class TextBuffer {
   public:
    TextBuffer() = default;

    void append(std::string_view text) {
        if (text.empty()) return;
        std::memcpy(grow(text.size()), text.data(), text.size());
    }
    void push_back(char c) { *grow(1) = c; }
    void clear() { size_ = 0; }
    void reserve(std::size_t capacity);
    void truncate(std::size_t size) { size_ = size; }

    // Makes room for `bytes` more, counts them as written, and returns their beginning.
    [[nodiscard]] char* grow(std::size_t bytes) {
        if (bytes >= capacity_ - size_) make_room(bytes);
        char* place = text_.get() + size_;
        size_ += bytes;
        return place;
    }

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::string_view view() const { return {text_.get(), size_}; }

    // The text with a NUL behind it, owned by the caller; the buffer is empty afterwards.
    [[nodiscard]] CText release();

   private:
    void make_room(std::size_t bytes);

    CText text_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;  // one byte of it is kept for the NUL
};

// What goes before the elements of a list: one text before the first, another before each of the others.
class ListSeparator {
   public:
    explicit ListSeparator(std::string_view first = {}, std::string_view others = ", ")
        : next_(first), others_(others) {}

    void append_to(TextBuffer& out) {
        out.append(next_);
        next_ = others_;
    }

   private:
    std::string_view next_;
    std::string_view others_;
};

}  // namespace libzentadbpp
