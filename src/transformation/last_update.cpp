#include "transformation/last_update.h"

#include <algorithm>

#include "memory/prefetch.h"

namespace libzentadbpp {

std::optional<std::size_t> PathMemory::find(std::string_view text) {
    if (known_ == nullptr) return std::nullopt;
    const std::vector<Path>& paths = known_->paths;
    if (next_ < paths.size() && paths[next_].text == text) return next_++;
    if (!by_text_) {
        by_text_.emplace(paths.size());
        for (std::size_t at = 0; at < paths.size(); ++at) {
            if (by_text_->add(paths[at].text).is_new) first_of_text_.push_back(at);
        }
    }
    const auto number = by_text_->find(text);
    if (!number) return std::nullopt;
    next_ = first_of_text_[*number] + 1;
    return next_ - 1;
}

std::size_t PathMemory::ask(std::string_view text) {
    const auto known = find(text);
    as_known_ = as_known_ && known == asked_.size();
    asked_.push_back(known ? known_->paths[*known] : Path{});
    return asked_.size() - 1;
}

std::shared_ptr<const PathHashes> PathMemory::collected() const {
    if (known_ != nullptr && as_known_ && asked_.size() == known_->paths.size()) return known_;
    std::size_t bytes = 0;
    for (const auto& [text, hash, ordering_id] : asked_) bytes += text.size() + hash.size() + ordering_id.size();
    auto collected = std::make_shared<PathHashes>();
    collected->texts.reserve(bytes);
    const auto copy = [&texts = collected->texts](std::string_view text) -> std::string_view {
        if (text.data() == nullptr) return {};
        const std::size_t at = texts.size();
        texts.append(text);
        return std::string_view(texts).substr(at);
    };
    collected->paths.reserve(asked_.size());
    for (const auto& [text, hash, ordering_id] : asked_) {
        collected->paths.push_back({copy(text), copy(hash), copy(ordering_id)});
    }
    return collected;
}

const LastUpdate::Produced* ExpectedDocuments::find(std::string_view id) {
    constexpr std::size_t ahead = 6;
    const auto& produced = last_->produced;
    if (next_ + ahead < produced.size()) {
        prefetch(produced[next_ + ahead].content);
    }
    if (next_ < produced.size() && produced[next_].id == id) return &produced[next_++];

    // Where little is as it was, sorting is quicker.
    constexpr std::size_t few = 64;
    if (searched_ > few + next_ / 8) return nullptr;
    ++searched_;
    constexpr std::uint32_t none = 0xffffffff;
    if (place_.empty()) {
        place_.resize(last_->ids.size(), none);
        for (std::uint32_t place = 0; place < produced.size(); ++place) place_[produced[place].number] = place;
    }
    const auto at = std::ranges::lower_bound(last_->ids, id);
    if (at == last_->ids.end() || *at != id) return nullptr;
    const std::uint32_t place = place_[static_cast<std::size_t>(at - last_->ids.begin())];
    if (place == none) return nullptr;
    next_ = place + 1;
    return &produced[place];
}

const LastUpdate::Produced* ExpectedDocuments::find_unchanged(std::string_view id, std::string_view content) {
    const LastUpdate::Produced* const document = find(id);
    if (document == nullptr || document->content != content) return nullptr;
    any_repeated_ = any_repeated_ || found_[document->number];
    found_[document->number] = true;
    left_alone_[document->number] = true;
    return document;
}

}  // namespace libzentadbpp
