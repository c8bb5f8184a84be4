#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/arena.h"
#include "common/json_value.h"
#include "common/number_token.h"

namespace libzentadbpp {

// How deep a text may nest. The outermost value is at depth 0.
inline constexpr std::size_t deepest_text = 200;
inline constexpr std::size_t deepest_content = 256;  // of one content inside a sync JSON, counted from itself
inline constexpr std::size_t no_depth_limit = static_cast<std::size_t>(-1);

enum class Comments : bool { refused, allowed };

// What the token "-0" is: the integer 0, or, in a content, whose text is its identity, the number the writer wrote so.
enum class MinusZero : bool { integer, real };

// How a message tells a character: 'c' (99), or its signed code alone where it is not printable ASCII.
[[nodiscard]] std::string told(char c);

// Brings members, as they were read, into the order that JsonValue::object wants; of equal keys the last stays.
// Answers those that are left, from the front of `members`.
[[nodiscard]] std::span<JsonMember> settle_members(std::span<JsonMember> members);

// Walks a JSON text token by token. Every failure throws ParseError with the message that the host sees; the first
// one decides. The text must outlive what is read from it; strings with escapes are decoded into the arena, all
// others are slices of the text. Nothing recurses.
class JsonScanner {
   public:
    JsonScanner(std::string_view text, Arena& arena, Comments comments = Comments::refused)
        : text_(text), arena_(&arena), comments_(comments) {}

    // The next character that is not white space, consumed. The end of the text is a failure.
    char next_token();
    // Puts back the character that next_token just gave.
    void put_back() { --position_; }

    // The rest of a string whose opening quote was consumed.
    std::string_view read_string();
    // The key of the member that begins here, and its colon: `first` is the token where the key must be.
    std::string_view read_key(char first);
    // What follows a member of an object: '}', or the quote after the comma, where the next key begins.
    char after_member();

    // Reads the value that begins at the next token as a tree. `depth` is that of the value; a value deeper than
    // `deepest` fails before it is looked at.
    JsonValue read_value(std::size_t depth, std::size_t deepest);
    // Checks it in the same way without keeping it, and answers its text.
    std::string_view skip_value(std::size_t depth, std::size_t deepest);

    // Fails unless only white space is left.
    void expect_end();

    [[nodiscard]] std::size_t position() const { return position_; }
    void move_to(std::size_t position) { position_ = position; }
    void read_minus_zero_as(MinusZero minus_zero) { minus_zero_ = minus_zero; }
    [[nodiscard]] std::string_view text() const { return text_; }
    [[nodiscard]] Arena& arena() { return *arena_; }

   private:
    // An array or object that is not closed yet.
    struct Open {
        std::size_t first;  // where its elements or members begin among the waiting ones
        bool is_object;
        bool ascending;
    };

    template <bool keep>
    JsonValue walk(std::size_t depth, std::size_t deepest);
    void add_key(std::string_view key);
    JsonValue close_object();
    JsonValue close_array();
    NumberToken read_number();
    void expect_word(std::string_view word);
    void skip_space();
    void skip_key(char first);
    void expect_colon();
    std::string_view skip_string(bool& escaped);
    void check_unicode_escape(std::size_t digits);
    void skip_comments();

    std::string_view text_;
    Arena* arena_;
    Comments comments_;
    MinusZero minus_zero_ = MinusZero::integer;
    std::size_t position_ = 0;
    std::vector<Open> open_;
    std::vector<JsonValue> waiting_elements_;
    std::vector<JsonMember> waiting_members_;
};

}  // namespace libzentadbpp
