#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "c_api/zenta.h"

namespace c_api {

enum class Kind : std::uint8_t {
    sync_json,  // text of an object that may be compressed
    object,     // text of an object that is not opened
    array,      // text of an array
    config,     // text of a configuration
    handle,     // opened from the text given here
    id,
    revision,
    revision_or_id,
    ids,
    number,
    flag,
    optional_text,
};

inline bool is_json(Kind kind) {
    return kind == Kind::sync_json || kind == Kind::object || kind == Kind::array || kind == Kind::config;
}

// What a well-formed text of the wrong kind leads to.
enum class Check : std::uint8_t { counts_as_empty, bare_key, record };

struct Argument {
    Kind kind;
    Check check = Check::counts_as_empty;
    std::string_view key{};       // of that failure; of a handle, for null
    std::string_view null_key{};  // an error record for null; without it, "null input"
};

// What a compressed object that cannot be opened leads to.
enum class Inflation : std::uint8_t { not_opened, reported, passed_over, bare_key };
enum class Compression : std::uint8_t { never, always, like_first, by_config };
enum class Gives : std::uint8_t { text, sync_json };

// Calls with a text for each argument in C order; none is null. Handles are opened from their texts and freed before
// the answer is looked at. A call must leave them as they were, except where `writes` says otherwise and it succeeds.
using Texts = std::vector<std::optional<std::string>>;

// What is to be done right before and after the C function runs.
struct Around {
    std::function<void()> begin = [] {};
    std::function<void()> end = [] {};
    bool may_give_nothing = false;  // neither value nor error, as where no memory is left
};

struct Caller {
    std::function<Answer(const Texts&, const Around&)> function;
    Answer operator()(const Texts& texts, const Around& around = {}) const { return function(texts, around); }
};

struct Export {
    std::string_view name;
    Caller call;
    std::vector<Argument> arguments;  // in C order
    Inflation inflation = Inflation::not_opened;
    Compression compression = Compression::never;
    Gives gives = Gives::text;
    std::vector<std::size_t> order{};  // in which arguments are looked at, where it is not the C order
};

// Every exported function but the free functions and the version.
const std::vector<Export>& exports();
const Export& export_named(std::string_view name);

// The function that does the same by handle; null for none.
const Export* twin_of(const Export& row);

// What the twin answers, with the name of `row` in the place of its own.
Answer call_in_the_name_of(const Export& row, const Export& twin, const Texts& texts);

// What an answer says, compressed or not.
Answer opened(Answer answer);

// Arguments with which every function succeeds.
Texts good_arguments(const Export& row);

}  // namespace c_api
