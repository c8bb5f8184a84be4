#include <cfenv>
#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

#include "c_api/zenta.h"

namespace c_api {
namespace {

// However a content is laid out, and in every mode, its numbers have one spelling, which is then left alone.
TEST(Numbers, OfAContentHaveOneSpelling) {
    for (const char* number :
         {"-0", "0", "-0.0", "0.0", "1234567890", "-2147483648", "2147483648", "1.0", "0.1", "1e2"}) {
        const auto with = [](const std::string& content) {
            return R"({"d": {"a": ["A_first"]}, "o": {"A": )" + content + R"(}, "r": "a"})";
        };
        const std::string tight = with(R"({"n": )" + std::string(number) + "}");
        const std::string loose = with(R"({ "n":)" + std::string(number) + " }");
        const Answer opened = open(tight);
        EXPECT_EQ(open(loose).value, opened.value) << number;
        EXPECT_EQ(open(opened.text()).value, opened.value) << number;
        EXPECT_EQ(uncompressed(loose), uncompressed(tight)) << number;
        EXPECT_EQ(uncompressed(opened.text()), opened.text()) << number;
    }
}

// A host may compute in another rounding mode, flush to zero, or have exceptions trap.
TEST(Numbers, DoNotDependOnTheStateOfTheThread) {
    const std::string data = R"({"a": [0.3, 1.1, 123456.789, 7e22, 1e23, -4.35, 9007199254740993, 5e-324, 2.5e-310]})";
    const auto updated = [&] { return taken(update_sync_json(data.c_str(), "{}", "{}")); };
    std::feclearexcept(FE_ALL_EXCEPT);
    const Answer usual = updated();
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0);
    for (const int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        std::fenv_t before;
        std::fegetenv(&before);
        std::fesetround(mode);
#if defined(__SSE2__)
        constexpr unsigned flush = 0x8040;
        _mm_setcsr(_mm_getcsr() | flush);
#endif
        const Answer answer = updated();
        const int mode_after = std::fegetround();
#if defined(__SSE2__)
        const unsigned flush_after = _mm_getcsr() & flush;
#endif
        std::fesetenv(&before);
        EXPECT_EQ(answer, usual) << mode;
        EXPECT_EQ(mode_after, mode);
#if defined(__SSE2__)
        EXPECT_EQ(flush_after, flush);
#endif
    }
}

}  // namespace
}  // namespace c_api
