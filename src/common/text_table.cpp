#include "common/text_table.h"

#include <bit>
#include <cstring>
#include <random>

namespace libzentadbpp {

namespace {

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t load(const char* from, std::size_t bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, from, bytes);
    return word;
}

std::uint64_t random_seed() {
    std::random_device device;
    return (std::uint64_t{device()} << 32 | device()) | 1;
}

}  // namespace

TextTable::TextTable(std::size_t size)
    : seed_(random_seed()), slots_(std::bit_ceil(size * 2 + 1), Slot{0, free_slot}), mask_(slots_.size() - 1) {
    texts_.reserve(size);
}

std::uint64_t TextTable::hash(std::string_view text) const {
    constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
    std::uint64_t state = seed_ ^ text.size();
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left > 8; left -= 8, at += 8) state = mix(state ^ load(at, 8), seed_ ^ odd);
    return mix(state ^ load(at, left), odd);
}

void TextTable::add(std::string_view text) {
    const auto number = static_cast<std::uint32_t>(texts_.size());
    texts_.push_back(text);
    const std::uint64_t code = hash(text);
    const auto tag = static_cast<std::uint32_t>(code >> 32);
    std::size_t slot = code & mask_;
    for (; slots_[slot].number != free_slot; slot = (slot + 1) & mask_) {
        if (slots_[slot].tag == tag && texts_[slots_[slot].number] == text) return;  // the first one stays
    }
    slots_[slot] = {tag, number};
}

std::optional<std::uint32_t> TextTable::find(std::string_view text) const {
    const std::uint64_t code = hash(text);
    const auto tag = static_cast<std::uint32_t>(code >> 32);
    for (std::size_t slot = code & mask_; slots_[slot].number != free_slot; slot = (slot + 1) & mask_) {
        if (slots_[slot].tag == tag && texts_[slots_[slot].number] == text) return slots_[slot].number;
    }
    return std::nullopt;
}

}  // namespace libzentadbpp
