#pragma once

#include <cstdint>
#include <optional>

#include "contents/document_index.h"
#include "memory/large_vector.h"

namespace libzentadbpp {

// How the documents of a former index are numbered in one of a storage that nearly has the same documents. What was
// learned from contents that did not change can be taken over with the new numbers.
class Renumbering {
   public:
    static constexpr std::uint32_t none = 0xffffffff;

    // Nothing if a document is no longer there. O(documents).
    [[nodiscard]] static std::optional<Renumbering> between(const DocumentIndex& former, const DocumentIndex& now);

    [[nodiscard]] std::uint32_t now(std::uint32_t former) const { return now_[former]; }
    // The former number of a document whose winning content is still the same text in memory; else none.
    [[nodiscard]] std::uint32_t if_unchanged(std::uint32_t now) const { return unchanged_[now]; }
    [[nodiscard]] bool any_added() const { return now_.size() != unchanged_.size(); }

   private:
    LargeVector<std::uint32_t> now_;
    LargeVector<std::uint32_t> unchanged_;
};

}  // namespace libzentadbpp
