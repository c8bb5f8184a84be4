// The JSON reader, the two writers and what recognises texts that need no rewriting.

#include <gtest/gtest.h>

#include "checks.h"
#include "common/canonical_text.h"
#include "common/compact_form.h"
#include "common/error.h"
#include "common/json_parser.h"
#include "common/json_writer.h"
#include "common/random_json.h"
#include "generate.h"

namespace fuzzing {
namespace {

using namespace libzentadbpp;

using Read = JsonValue (*)(std::string_view, Arena&);
const Read readers[] = {[](std::string_view text, Arena& arena) { return parse_json(text, arena); },
                        parse_sync_json_value};

std::string written(const JsonValue& value) {
    TextBuffer out;
    write_json(value, out);
    return std::string(out.view());
}

// In memory of just its size, so that a look behind its end is seen.
std::optional<std::string> rewritten(std::string_view text, Read read) {
    const auto copy = testing_json::exact_copy(text);
    Arena arena;
    try {
        return written(read(testing_json::view(copy), arena));
    } catch (const ParseError& failure) {
        expect_described(failure.what());
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

void check(const std::string& text, Read read) {
    const auto once = rewritten(text, read);
    if (!text.empty() && is_canonical(text) && !testing_json::may_hold_minus_zero(text)) {
        EXPECT_EQ(once, text);
    }
    if (!once) return;
    std::string settled = *once;
    if (testing_json::may_hold_minus_zero(settled)) settled = rewritten(settled, read).value();
    EXPECT_EQ(rewritten(settled, read), settled);
    if (read == readers[0]) {
        EXPECT_TRUE(is_canonical(settled)) << settled;
    }
    TextBuffer compact;
    try {
        standard_to_compact(*once, compact);
    } catch (const TextContainsNul&) {
        EXPECT_NE(once->find("\\u0000"), std::string::npos);
        return;
    }
    Arena arena;
    EXPECT_EQ(rewritten(compact.view(), read), *once);
    if (!testing_json::may_hold_minus_zero(*once)) {
        EXPECT_EQ(to_standard_text(compact.view(), arena), *once);
    }
}

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fuzzing;
    Choices choices(data, size);
    const std::size_t how = choices.below(4);
    const std::string text = how < 2 ? choices.rest() : Generator(choices).json(6);
    check(text, readers[how % 2]);
    return 0;
}
