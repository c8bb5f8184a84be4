#include "documents/revision.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

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
        const char *datahash, *uuid, *composed;
    } cases[] = {
        {"3-abc_def", 3, "abc", "def", "3-abc_def"},
        {"3z-abc_def", 3, "abc", "def", "3-abc_def"},
        {" \t\n\v\f\r3-abc_def", 3, "abc", "def", "3-abc_def"},
        {"007-abc_def", 7, "abc", "def", "7-abc_def"},
        {"-3-abc_def", 4294967293U, "abc", "def", "4294967293-abc_def"},
        {"2147483647-a_b", 2147483647U, "a", "b", "2147483647-a_b"},
        {"-2147483648-a_b", 2147483648U, "a", "b", "2147483648-a_b"},
        {"3-_a_b", 3, "_a", "b", "3-_a_b"},
        {"3-a_", 3, "a", "", "3-a_"},
        {"+0-a_b", 0, "a", "b", "0-a_b"},
    };
    for (const auto& [text, index, datahash, uuid, composed] : cases) {
        SCOPED_TRACE(text);
        const Revision revision{std::string_view(text)};
        EXPECT_EQ(revision.index(), index);
        EXPECT_EQ(revision.datahash(), datahash);
        EXPECT_EQ(revision.uuid(), uuid);
        EXPECT_EQ(revision.revision_string(), text);
        EXPECT_EQ(revision, Revision(index, datahash, uuid)) << "the text does not count";
        EXPECT_EQ(Revision(index, datahash, uuid).revision_string(), composed);
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

TEST(Revision, OrdersByGenerationThenText) {
    const std::vector<const char*> ascending = {"2-a_y", "2-a_ya", "2-b_x", "2-\x80_a", "9-z_z", "10-a_b", "-1-a_b"};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(Revision{std::string_view(ascending[i])} < Revision{std::string_view(ascending[j])}, i < j)
                << ascending[i] << " " << ascending[j];
        }
    }
    EXPECT_FALSE(Revision{"0-a_b"} < Revision{"0-c_d"});
    EXPECT_FALSE(Revision() < Revision());
    EXPECT_TRUE(Revision() < Revision{"1-a_b"});
    EXPECT_TRUE(Revision{"03-a_b"} < Revision{"3-a_b"}) << "the text as it was given";
}

}  // namespace
}  // namespace libzentadbpp
