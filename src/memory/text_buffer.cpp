#include "memory/text_buffer.h"

#include <algorithm>
#include <limits>
#include <new>

#include "memory/large_pages.h"

namespace libzentadbpp {

void TextBuffer::reserve(std::size_t capacity) {
    if (capacity < capacity_) return;
    if (capacity == std::numeric_limits<std::size_t>::max()) throw std::bad_alloc();
    void* memory = std::realloc(text_.get(), capacity + 1);
    if (memory == nullptr) throw std::bad_alloc();
    (void)text_.release();
    text_.reset(static_cast<char*>(memory));
    capacity_ = capacity + 1;
    prefer_large_pages(memory, capacity_);
}

void TextBuffer::make_room(std::size_t bytes) {
    if (bytes > std::numeric_limits<std::size_t>::max() / 2 - size_) throw std::bad_alloc();
    reserve(std::max(size_ + bytes, std::max<std::size_t>(capacity_ + capacity_ / 2, 64)));
}

CText TextBuffer::release() {
    *grow(1) = '\0';
    // What growing took too much is given back; a shrinking realloc that fails leaves the text as it is.
    if (capacity_ - size_ > size_ / 8) {
        if (void* memory = std::realloc(text_.get(), size_)) {
            (void)text_.release();
            text_.reset(static_cast<char*>(memory));
        }
    }
    size_ = 0;
    capacity_ = 0;
    return std::move(text_);
}

}  // namespace libzentadbpp
