#include "documents/revision.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "json/error.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using in_texts::failure;

std::string refused(std::string_view function, std::string_view error, std::optional<std::string> args = {}) {
    return in_texts::record("src/documents/revision", function, error, args);
}

TEST(Revision, ParsesTexts) {
    const struct {
        const char* text;
        std::uint32_t index;
        const char* datahash;
    } cases[] = {
        {"3-abc_def", 3, "abc"},
        {"3z-abc_def", 3, "abc"},
        {" \t\n\v\f\r3-abc_def", 3, "abc"},
        {"007-abc_def", 7, "abc"},
        {"-3-abc_def", 4294967293U, "abc"},
        {"2147483647-a_b", 2147483647U, "a"},
        {"-2147483648-a_b", 2147483648U, "a"},
        {"3-_a_b", 3, "_a"},
        {"3-a_", 3, "a"},
        {"+0-a_b", 0, "a"},
    };
    for (const auto& [text, index, datahash] : cases) {
        SCOPED_TRACE(text);
        const Revision revision{std::string_view(text)};
        EXPECT_EQ(revision.index(), index);
        EXPECT_EQ(revision.datahash(), datahash);
        EXPECT_EQ(revision.revision_string(), text);
    }
}

TEST(Revision, RefusesOtherTexts) {
    for (const char* text :
         {"3abc_def", "3-abcdef", "3-a_b_c", "3-a-b_c", "3--a_b", "-abc_def", "3-", "3-_a", "x-abcdef", "+-3-a_b"}) {
        EXPECT_EQ(failure<InvalidRevisionException>([&] { (void)Revision{std::string_view(text)}; }),
                  refused("parse_revision", "invalid_revision_format", text));
    }
    for (const char* text : {"x-abc_def", " -abc_def", "+ 3-a_b", "\xa0\x33-a_b"}) {
        EXPECT_EQ(failure<std::invalid_argument>([&] { (void)Revision{std::string_view(text)}; }),
                  "invalid stoi argument")
            << text;
    }
    for (const char* text : {"2147483648-a_b", "-2147483649-a_b", "99999999999999999999999999x-a_b"}) {
        EXPECT_EQ(failure<std::out_of_range>([&] { (void)Revision{std::string_view(text)}; }),
                  "stoi argument out of range")
            << text;
    }
    EXPECT_EQ(failure<InvalidRevisionException>([] { (void)Revision{""}; }), refused("Revision", "empty_revision"));
}

}  // namespace
}  // namespace libzentadbpp
