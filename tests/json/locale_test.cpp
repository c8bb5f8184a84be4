#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <filesystem>
#include <string>

#include "json/canonical_text.h"
#include "json/environment.h"
#include "json/number_text.h"
#include "json/parser.h"
#include "json/writer.h"

namespace libzentadbpp {
namespace {

// Hosts call setlocale as they please. Runs its tests where numbers are printed with a decimal comma.
class DecimalComma : public testing::Test {
   protected:
    void SetUp() override {
        if (prints_commas()) return;
        std::string directory = (std::filesystem::temp_directory_path() / "locale_test_XXXXXX").string();
        if (mkdtemp(directory.data()) == nullptr) GTEST_SKIP() << "no temporary directory";
        directory_ = directory;
        const std::string command = "localedef -i de_DE -f UTF-8 '" + directory + "/de_DE.UTF-8' >/dev/null 2>&1";
        [[maybe_unused]] const int status = std::system(command.c_str());
        setenv("LOCPATH", directory.c_str(), 1);
        if (!prints_commas()) GTEST_SKIP() << "no locale with a decimal comma is installed and none can be built";
    }
    void TearDown() override {
        std::setlocale(LC_ALL, "C");
        if (directory_.empty()) return;
        unsetenv("LOCPATH");
        std::filesystem::remove_all(directory_);
    }

   private:
    static bool prints_commas() {
        if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) return false;
        char text[8];
        std::snprintf(text, sizeof text, "%.1f", 0.5);
        return std::string(text) == "0,5";
    }

    std::filesystem::path directory_;
};

TEST_F(DecimalComma, ChangesNoNumber) {
    char digits[longest_number];
    EXPECT_EQ(std::string(digits, write_real_17(1234567.5, digits)), "1234567.5");
    EXPECT_EQ(std::string(digits, write_real_shortest(0.1, digits)), "0.1");
    EXPECT_EQ(std::string(digits, write_integer(-1234567, digits)), "-1234567");
    EXPECT_EQ(read_real("-2.5e-1"), -0.25);

    const std::string text = R"([0.5, 12345678, -1234.25, 1e+30])";
    const std::string expected = fast_float_enabled() ? R"([0.5, 12345678, -1234.25, 1e30])" : text;
    Arena arena;
    for (const std::string& form : {text, std::string("@l@f0.5x@i12345678x@f-1234.25x@f1e+30xx")}) {
        TextBuffer out;
        write_json(parse_json(form, arena), out);
        EXPECT_EQ(out.view(), expected);
    }
    EXPECT_EQ(canonical_value_end(expected.data(), expected.data() + expected.size(), 1),
              expected.data() + expected.size());
}

}  // namespace
}  // namespace libzentadbpp
