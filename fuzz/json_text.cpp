// The JSON reader, the two writers and what recognises texts that need no rewriting.

#include <gtest/gtest.h>

#include "checks.h"
#include "generate.h"
#include "json/canonical_text.h"
#include "json/compact_form.h"
#include "json/error.h"
#include "json/parser.h"
#include "json/random_json.h"
#include "json/writer.h"

namespace fuzzing {
namespace {

using namespace libzentadbpp;

using Read = JsonValue (*)(std::string_view, Arena&);
const Read readers[] = {[](std::string_view text, Arena& arena) { return parse_json(text, arena); },
                        parse_sync_json_value};

// As a content of a sync JSON is read.
JsonValue read_content(std::string_view text, Arena& arena) {
    JsonScanner scanner(to_standard_text(text, arena), arena);
    scanner.read_numbers_as(Numbers::written);
    const JsonValue value = scanner.read_value(0, deepest_text);
    scanner.expect_end();
    return value;
}

std::string written(const JsonValue& value) {
    TextBuffer out;
    write_json(value, out);
    return std::string(out.view());
}

// In memory of just its size, so that a look behind its end is seen.
std::optional<std::string> rewritten(std::string_view text, Read read, std::string* message = nullptr) {
    const auto copy = testing_json::exact_copy(text);
    Arena arena;
    try {
        return written(read(testing_json::view(copy), arena));
    } catch (const ParseError& failure) {
        expect_described(failure.what());
        if (message != nullptr) *message = failure.what();
    } catch (const std::out_of_range& failure) {
        expect_described(failure.what());
    }
    return std::nullopt;
}

bool is_canonical(std::string_view text) {
    const auto copy = testing_json::exact_copy(text);
    const char* const end = copy.data() + copy.size();
    return canonical_value_end(copy.data(), end, 200) == end;
}

// What skipping the text says, in the words of who reads it.
std::string skipping(const std::string& text) {
    const auto copy = testing_json::exact_copy(text);
    Arena arena;
    try {
        JsonScanner scanner(testing_json::view(copy), arena);
        scanner.skip_value(0, deepest_text);
        scanner.expect_end();
    } catch (const ParseError& failure) {
        return failure.what();
    }
    return "";
}

// Nothing for a text that the compact form cannot represent.
std::optional<std::string> compact(const std::string& text) {
    TextBuffer out;
    try {
        standard_to_compact(text, out);
    } catch (const TextContainsNul&) {
        EXPECT_NE(text.find("\\u0000"), std::string::npos);
        return std::nullopt;
    }
    return std::string(out.view());
}

void check(const std::string& text, Read read) {
    std::string message;
    const auto once = rewritten(text, read, &message);
    if (!text.empty() && text.front() != '@') {
        EXPECT_EQ(is_canonical(text), rewritten(text, read_content) == text) << text;
    }
    if (read == readers[0] && !text.empty() && text.front() != '@') {
        EXPECT_EQ(skipping(text), message) << text;
    }
    if (!once) return;
    std::string settled = *once;
    // The compact form says more of some numbers than the standard text does.
    if (testing_json::may_hold_minus_zero(settled) || text.front() == '@') settled = rewritten(settled, read).value();
    EXPECT_EQ(rewritten(settled, read), settled);
    EXPECT_FALSE(rewritten("[" + settled.substr(0, settled.size() / 2), read));
    const auto form = compact(*once);
    if (!form) return;
    EXPECT_EQ(rewritten(*form, read), *once);
    for (std::size_t size = 1; size < form->size(); size += 1 + size / 4) {
        EXPECT_FALSE(rewritten(form->substr(0, size), read)) << *form << " to " << size;
    }
    Arena arena;
    if (!testing_json::may_hold_minus_zero(*once)) {
        EXPECT_EQ(to_standard_text(*form, arena), *once);
    }
}

// What the writer writes, in both forms, and the same with damage.
void check_written(std::uint64_t seed) {
    Arena arena;
    testing_json::RandomJson random(seed, arena);
    const std::string text = written(random.value());
    check(text, readers[0]);
    const auto form = compact(text);
    for (int i = 0; i < 4; ++i) check(random.damaged(i == 0 && form ? *form : text), readers[0]);
}

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    Choices choices(data, size);
    const std::size_t how = choices.below(6);
    if (how > 3) {
        check_written(choices.below(std::size_t{1} << 32));
        return 0;
    }
    check(how < 2 ? choices.rest() : Generator(choices).json(6), readers[how % 2]);
    return 0;
}
