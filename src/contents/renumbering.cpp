#include "contents/renumbering.h"

namespace libzentadbpp {

namespace {

bool is_same_text(const std::optional<std::string_view>& a, const std::optional<std::string_view>& b) {
    return a && b && a->data() == b->data() && a->size() == b->size();
}

}  // namespace

std::optional<Renumbering> Renumbering::between(const DocumentIndex& former, const DocumentIndex& now) {
    Renumbering numbers;
    numbers.now_.reserve(former.size());
    numbers.unchanged_.reserve(now.size());
    for (std::uint32_t number = 0; number < now.size(); ++number) {
        const auto next = static_cast<std::uint32_t>(numbers.now_.size());
        const bool is_known = next < former.size() &&
                              (&former.document(next) == &now.document(number) || former.id(next) == now.id(number));
        const bool is_unchanged = is_known && is_same_text(former.winning_content(next), now.winning_content(number));
        numbers.unchanged_.push_back(is_unchanged ? next : none);
        if (is_known) numbers.now_.push_back(number);
    }
    return numbers.now_.size() == former.size() ? std::optional(std::move(numbers)) : std::nullopt;
}

}  // namespace libzentadbpp
