#include "text/text_order.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <utility>

#include "text/first_bytes.h"

namespace libzentadbpp {

namespace {

constexpr std::size_t chunk_bytes = 8;

struct Slot {
    std::uint64_t chunk;  // the bytes at the depth that is being sorted, the first one highest
    std::uint32_t number;
};

std::string_view rest(std::string_view text, std::size_t depth) { return text.substr(std::min(depth, text.size())); }

std::uint64_t chunk_at(std::string_view text, std::size_t depth) { return first_bytes(rest(text, depth)); }

// Sorts by chunk, byte by byte from the last one; stable. Bytes that are alike everywhere are passed over.
void sort_by_chunk(std::span<Slot> slots, LargeVector<Slot>& spare) {
    std::array<std::array<std::uint32_t, 256>, chunk_bytes> counts{};
    for (const Slot& slot : slots) {
        for (std::size_t byte = 0; byte < chunk_bytes; ++byte)
            ++counts[byte][static_cast<std::uint8_t>(slot.chunk >> 8 * byte)];
    }
    spare.resize(slots.size());
    std::span<Slot> from = slots;
    std::span<Slot> to = spare;
    for (std::size_t byte = 0; byte < chunk_bytes; ++byte) {
        const auto digit = [byte](const Slot& slot) { return static_cast<std::uint8_t>(slot.chunk >> 8 * byte); };
        std::array<std::uint32_t, 256>& next = counts[byte];
        if (next[digit(from.front())] == from.size()) continue;
        std::uint32_t sum = 0;
        for (std::uint32_t& count : next) count = std::exchange(sum, sum + count);
        for (const Slot& slot : from) to[next[digit(slot)]++] = slot;
        std::swap(from, to);
    }
    if (from.data() != slots.data()) std::ranges::copy(from, slots.begin());
}

}  // namespace

std::vector<std::uint32_t> text_order(std::span<const std::string_view> texts) {
    return text_order_and_equals(texts).positions;
}

TextOrder text_order_and_equals(std::span<const std::string_view> texts) {
    if (texts.size() > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("too many texts to sort");
    LargeVector<Slot> slots;
    slots.reserve(texts.size());
    for (const std::string_view text : texts) {
        slots.push_back({first_bytes(text), static_cast<std::uint32_t>(slots.size())});
    }

    // Ranges of slots whose texts agree up to a depth, with the chunks that follow it.
    struct Range {
        std::size_t begin;
        std::size_t end;
        std::size_t depth;
    };
    constexpr std::size_t few = 64;
    LargeVector<Slot> spare;
    bool any_equal = false;
    std::vector<Range> ranges{{0, slots.size(), 0}};
    while (!ranges.empty()) {
        const auto [begin, end, depth] = ranges.back();
        ranges.pop_back();
        const std::span<Slot> range(slots.data() + begin, end - begin);
        if (range.size() <= few) {
            std::ranges::sort(range, [&, equal = depth](const Slot& a, const Slot& b) {
                if (a.chunk != b.chunk) return a.chunk < b.chunk;
                const std::string_view text_a = texts[a.number];
                const std::string_view text_b = texts[b.number];
                const int order = rest(text_a, equal).compare(rest(text_b, equal));
                if (order != 0) return order < 0;
                if (text_a.size() != text_b.size()) return text_a.size() < text_b.size();
                any_equal = any_equal || a.number != b.number;
                return a.number < b.number;
            });
            continue;
        }
        sort_by_chunk(range, spare);
        for (auto run = range.begin(); run != range.end();) {
            auto run_end = run + 1;
            bool goes_on = texts[run->number].size() > depth + chunk_bytes;
            // Texts that end in this chunk may differ by the zero bytes at their ends.
            for (; run_end != range.end() && run_end->chunk == run->chunk; ++run_end) {
                goes_on = goes_on || texts[run_end->number].size() > depth + chunk_bytes;
            }
            const auto at = static_cast<std::size_t>(run - range.begin()) + begin;
            const auto size = static_cast<std::size_t>(run_end - run);
            if (size > 1 && goes_on) {
                for (Slot& slot : std::span(run, run_end))
                    slot.chunk = chunk_at(texts[slot.number], depth + chunk_bytes);
                ranges.push_back({at, at + size, depth + chunk_bytes});
            } else if (size > 1) {
                const auto size_of = [&](const Slot& slot) { return texts[slot.number].size(); };
                const std::span<Slot> alike(run, run_end);
                std::ranges::stable_sort(alike, {}, size_of);
                any_equal = any_equal || std::ranges::adjacent_find(alike, {}, size_of) != alike.end();
            }
            run = run_end;
        }
    }

    std::vector<std::uint32_t> order;
    order.reserve(slots.size());
    for (const Slot& slot : slots) order.push_back(slot.number);
    return {std::move(order), any_equal};
}

}  // namespace libzentadbpp
