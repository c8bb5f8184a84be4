#pragma once

#include <cstddef>
#include <string>

namespace bench {

// The host data that everything is measured on: a notebook of `notes` notes, each with a body of 120 to 400 characters,
// tags, numbers, a nested object and up to four tasks. Nearly all texts differ, and they are the same every time. With
// `edited_percent`, that share of the notes has another title, which differs from edit to edit.
[[nodiscard]] std::string notebook(std::size_t notes, unsigned edited_percent = 0, unsigned edit = 1);

// The same number of top-level elements with hardly any content, and with nothing but decimal numbers.
[[nodiscard]] std::string tiny_elements(std::size_t count);
[[nodiscard]] std::string decimals(std::size_t count);
// As many tiny objects that are members of the outermost one, each to be a document of its own.
[[nodiscard]] std::string tiny_objects(std::size_t count);
// One document that holds everything.
[[nodiscard]] std::string one_document(std::size_t members);

// Sync JSONs with one document of a special shape: a chain of revisions, or a fan of branches under the first one.
[[nodiscard]] std::string chain(std::size_t revisions);
[[nodiscard]] std::string fan(std::size_t branches);

}  // namespace bench
