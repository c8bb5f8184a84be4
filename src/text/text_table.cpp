#include "text/text_table.h"

#include <bit>
#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>

namespace libzentadbpp {

namespace {

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t load(const char* from) {
    std::uint64_t word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

std::uint32_t tag_of(std::uint64_t code) { return static_cast<std::uint32_t>(code >> 32); }

// Drawn once in a process, as a draw can cost more than filling a small table. If it fails, the next table draws again.
std::uint64_t random_seed() {
    static const std::uint64_t seed = [] {
        std::random_device device;
        return (std::uint64_t{device()} << 32 | device()) | 1;
    }();
    return seed;
}

}  // namespace

TextTable::TextTable(std::size_t expected)
    : seed_(random_seed()), slots_(std::bit_ceil(expected * 2 + 2), Slot{0, free_slot}), mask_(slots_.size() - 1) {
    texts_.reserve(expected);
}

TextTable::TextTable(LargeVector<std::string_view> texts) : TextTable(texts.size()) {
    if (texts.size() >= free_slot) throw std::length_error("too many texts");
    for (std::size_t number = 0; number < texts.size(); ++number) {
        const std::uint64_t code = hash(texts[number]);
        std::size_t slot = code & mask_;
        while (slots_[slot].number != free_slot) slot = (slot + 1) & mask_;
        slots_[slot] = {tag_of(code), static_cast<std::uint32_t>(number)};
    }
    texts_ = std::move(texts);
}

std::uint64_t TextTable::hash(std::string_view text) const {
    constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
    std::uint64_t state = seed_ ^ text.size();
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left > 16; left -= 16, at += 16) state = mix(load(at) ^ state, load(at + 8) ^ seed_);
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    if (left >= 8) {
        low = load(at);
        high = load(at + left - 8);
    } else {
        for (std::size_t i = 0; i < left; ++i) low = low << 8 | static_cast<unsigned char>(at[i]);
    }
    return mix(mix(low ^ state, high ^ seed_), odd);
}

std::size_t TextTable::slot_of(std::string_view text, std::uint64_t code) const {
    const std::uint32_t tag = tag_of(code);
    std::size_t slot = code & mask_;
    for (; slots_[slot].number != free_slot; slot = (slot + 1) & mask_) {
        if (slots_[slot].tag == tag && texts_[slots_[slot].number] == text) break;
    }
    return slot;
}

TextTable::Added TextTable::add(std::string_view text) {
    if (texts_.size() * 2 >= slots_.size()) grow();
    const std::uint64_t code = hash(text);
    Slot& slot = slots_[slot_of(text, code)];
    if (slot.number != free_slot) return {slot.number, false};
    if (texts_.size() >= free_slot) throw std::length_error("too many texts");
    slot = {tag_of(code), static_cast<std::uint32_t>(texts_.size())};
    texts_.push_back(text);
    return {slot.number, true};
}

void TextTable::grow() {
    slots_.assign(slots_.size() * 4, Slot{0, free_slot});
    mask_ = slots_.size() - 1;
    for (std::uint32_t number = 0; number < texts_.size(); ++number) {
        const std::uint64_t code = hash(texts_[number]);
        slots_[slot_of(texts_[number], code)] = {tag_of(code), number};
    }
}

std::optional<std::uint32_t> TextTable::find(std::string_view text) const {
    const std::uint32_t number = slots_[slot_of(text, hash(text))].number;
    return number == free_slot ? std::nullopt : std::optional(number);
}

}  // namespace libzentadbpp
