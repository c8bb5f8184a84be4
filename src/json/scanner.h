#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json/number_token.h"
#include "json/value.h"
#include "memory/arena.h"
#include "memory/small_stack.h"

namespace libzentadbpp {

// How deep a text may nest. The outermost value is at depth 0.
inline constexpr std::size_t deepest_text = 200;
inline constexpr std::size_t deepest_content = 256;  // of one content inside a sync JSON, counted from itself
inline constexpr std::size_t no_depth_limit = static_cast<std::size_t>(-1);

enum class Comments : bool { refused, allowed };

// What whole numbers are. As hosts give them, those of up to nine characters are integers, and "-0" is the integer 0.
// As the writer writes them, all that fit 32 bits are, and "-0" is a real number: so it is in a content, whose text is
// its identity, and in what was translated from the compact form, which says what each number is.
enum class Numbers : bool { given, written };

// A character in a message: 'c' (99), or only its signed code if it is not printable ASCII.
[[nodiscard]] std::string described(char c);

// Walks a JSON text token by token. Every failure throws ParseError with the message that the host sees; the first
// one decides. The text must outlive what is read from it; strings with escapes are decoded into the arena, all
// others are slices of the text. Nothing recurses.
class JsonScanner {
   public:
    JsonScanner(std::string_view text, Arena& arena, Comments comments = Comments::refused)
        : begin_(text.data()), at_(begin_), end_(begin_ + text.size()), arena_(&arena), comments_(comments) {}

    // The next character that is not white space, consumed. The end of the text is a failure.
    char next_token() {
        at_ = token(at_);
        return *at_++;
    }
    // Puts back the character that next_token just gave.
    void put_back() { --at_; }

    // The rest of a string whose opening quote was consumed.
    std::string_view read_string();
    // Reads the key of the member that begins here, and its colon; `first` is the token in place of the key.
    std::string_view read_key(char first);
    // What follows a member of an object: '}', or the quote after the comma, where the next key begins.
    char after_member();

    // Reads the value that begins at the next token as a tree. `depth` is that of the value; a value deeper than
    // `deepest` fails before it is looked at.
    JsonValue read_value(std::size_t depth, std::size_t deepest);
    // Checks it in the same way without keeping it, and returns its text.
    std::string_view skip_value(std::size_t depth, std::size_t deepest);

    // Fails unless only white space is left.
    void expect_end();

    [[nodiscard]] std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }
    // What is not consumed yet, and to go on at a place in it.
    [[nodiscard]] std::string_view rest() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }
    void move_to(const char* place) { at_ = place; }
    void read_numbers_as(Numbers numbers) { numbers_ = numbers; }
    [[nodiscard]] Numbers numbers() const { return numbers_; }
    [[nodiscard]] Arena& arena() { return *arena_; }

   private:
    // An array or object that is not closed yet.
    struct Open {
        std::size_t first;  // where its elements or members begin among the waiting ones
        bool is_object;
        bool ascending;
    };
    struct WaitingMember {
        std::uint64_t begin;  // the first bytes of its key
        JsonMember member;
    };
    // Elements or members of open ones. Room that was given back is used again without being cleared.
    template <class T>
    class Waiting {
       public:
        T& add() {
            if (size_ == items_.size()) items_.resize(size_ * 2 + 16);
            return items_[size_++];
        }
        [[nodiscard]] T& last() { return items_[size_ - 1]; }
        [[nodiscard]] std::size_t size() const { return size_; }
        [[nodiscard]] std::span<T> from(std::size_t first) { return std::span(items_).subspan(first, size_ - first); }
        void shrink(std::size_t size) { size_ = size; }

       private:
        std::vector<T> items_;
        std::size_t size_ = 0;
    };

    // Where the next token is.
    const char* token(const char* at) {
        if (at != end_ && *at == ' ') ++at;  // mostly there is one blank, or none
        return at != end_ && static_cast<unsigned char>(*at) > ' ' && *at != '/' ? at : token_after_space(at);
    }
    const char* token_after_space(const char* at);
    const char* skip_space(const char* at) const;
    const char* skip_comment(const char* at) const;

    // Each of these reads what begins at `at` and returns its end.
    template <bool keep>
    const char* walk(const char* at, std::size_t depth, std::size_t deepest, JsonValue& outermost);
    template <bool keep>
    const char* read_scalar(const char* at, JsonValue& value);
    const char* read_key(const char* at, std::string_view& key);  // with its colon
    const char* skip_key(const char* at);
    const char* expect_colon(const char* at) {
        return at != end_ && *at == ':' ? at + 1 : expect_colon_after_space(at);
    }
    const char* expect_colon_after_space(const char* at);
    template <std::size_t size>
    const char* expect_word(const char* at, const char (&word)[size]) const;
    const char* read_string_value(const char* inside, JsonValue& value);
    const char* read_string(const char* inside, std::string_view& text);
    const char* skip_string(const char* inside, bool& escaped) const;
    void check_unicode_escape(const char* digits) const;
    const char* read_number(const char* at, JsonValue* value);

    // Where the value that was read belongs: the innermost open object or array, or nothing.
    JsonValue& place(JsonValue& outermost) {
        if (open_.empty()) return outermost;
        return open_.back().is_object ? waiting_members_.last().member.value : waiting_elements_.add();
    }
    void add_key(std::string_view key);
    JsonValue close_object();
    std::size_t settle(std::span<const WaitingMember> members, JsonMember* settled);
    JsonValue close_array();

    const char* begin_;
    const char* at_;
    const char* end_;
    Arena* arena_;
    Comments comments_;
    Numbers numbers_ = Numbers::given;
    std::vector<Open> open_;
    BitStack open_objects_;  // the same of a value that is only passed over: whether each is an object
    Waiting<JsonValue> waiting_elements_;
    Waiting<WaitingMember> waiting_members_;
    static constexpr std::size_t few_members = 24;
    std::vector<std::uint32_t> many_order_;
    std::array<std::array<std::uint32_t, few_members>, few_members + 1> orders_{};  // the last ones, by size
};

}  // namespace libzentadbpp
