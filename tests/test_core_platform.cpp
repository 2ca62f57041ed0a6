#include <gtest/gtest.h>

#include <cwchar>

#include <cfenv>

#include <clocale>
#include <cmath>
#include <limits>

// The portability routines are hidden inside the shared library, so the test
// builds its own copy of them.
#include "vexa/core/platform.cpp"
#include "test_util.h"

namespace {

using namespace vexa_platform;

#if defined(__x86_64__)
// A check run for a program being made sees the default environment
// whatever the host set, and leaves the host's SSE control exactly as it
// was, even after changing the rounding itself (the C library's own
// restore of the environment may not cover the SSE unit).
TEST(CorePlatform, FlagCheckRestoresTheHostsSseControl) {
    const unsigned hosts[] = {0x1F80u, 0x3F80u, 0x5F80u, 0x7F80u, 0x9FC0u};
    for (unsigned host : hosts) {
        const unsigned before = _mm_getcsr();
        _mm_setcsr(host);
        unsigned inside = 0;
        vexa_platform::RaisesNoFlag([&] {
            inside = _mm_getcsr() & ~vexa_platform::kMxcsrFlags;
            std::fesetround(FE_TOWARDZERO);
        });
        const unsigned after = _mm_getcsr() & ~vexa_platform::kMxcsrFlags;
        _mm_setcsr(before);
        EXPECT_EQ(inside, vexa_platform::kDefaultMxcsr) << std::hex << host;
        EXPECT_EQ(after, host & ~vexa_platform::kMxcsrFlags) << std::hex << host;
    }
}
#endif

TEST(CorePlatform, WToF) {
    const std::vector<testutil::CaseLine> cases = testutil::ReadCases("numbers.txt");
    ASSERT_GT(cases.size(), 20u);
    for (const testutil::CaseLine& c : cases)
        EXPECT_EQ(WToF(c.fields[0].c_str()), testutil::Number(c.fields[1])) << "numbers.txt:" << c.line;
    EXPECT_EQ(WToF(nullptr), 0.0);
    EXPECT_TRUE(std::signbit(WToF(L"-0")));
}

TEST(CorePlatform, WToFIgnoresTheLocale) {
    const char* old = std::setlocale(LC_NUMERIC, nullptr);
    const std::string saved = old ? old : "C";
    bool switched = false;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
        if (std::setlocale(LC_NUMERIC, name)) {
            switched = true;
            break;
        }
    const double v = WToF(L"2.5");
    std::setlocale(LC_NUMERIC, saved.c_str());
    if (!switched) GTEST_SKIP() << "no locale with a decimal comma installed";
    EXPECT_EQ(v, 2.5);
}

TEST(CorePlatform, Trunc32AndFormatInt) {
    const std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
    struct Case {
        double v;
        std::int32_t t;
        const wchar_t* text;
    } cases[] = {
        {2.75, 2, L"2"}, {-2.75, -2, L"-2"}, {-0.5, 0, L"0"},
        {2147483647.9, 2147483647, L"2147483647"}, {-2147483648.9, kMin, L"-2147483648"},
        {2147483648.0, kMin, L"-2147483648"}, {-2147483649.0, kMin, L"-2147483648"},
        {std::numeric_limits<double>::infinity(), kMin, L"-2147483648"}, {std::nan(""), kMin, L"-2147483648"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.v);
        EXPECT_EQ(Trunc32(c.v), c.t);
        EXPECT_EQ(FormatInt(Trunc32(c.v)), c.text);
    }
}

TEST(CorePlatform, TextHelpers) {
    EXPECT_EQ(WcsICmp(L"Time", L"tIME"), 0);
    EXPECT_LT(WcsICmp(L"a", L"B"), 0);
    // Folding goes to lower case, so '_' (0x5F) sorts before a folded 'A'.
    EXPECT_LT(WcsICmp(L"_", L"A"), 0);
    EXPECT_LT(WcsICmp(nullptr, L"a"), 0);
    EXPECT_EQ(WcsICmp(nullptr, L""), 0);
    const wchar_t top[] = {static_cast<wchar_t>(WCHAR_MAX > 0xFFFF ? 0xFFFFFFFFu : 0xFFFFu), 0};
    EXPECT_LT(WcsICmp(L"a", top), 0);

    for (wchar_t c : {L' ', L'\t', L'\n', L'\v', L'\f', L'\r'}) EXPECT_TRUE(IsWSpace(c));
    for (wchar_t c : {L'\0', L'\b', L'\x0E', L'a', L'\x00A0', L'\x2003'}) EXPECT_FALSE(IsWSpace(c));

    EXPECT_EQ(WLen(nullptr), 0u);
    EXPECT_EQ(WLen(L""), 0u);
    EXPECT_EQ(WLen(L"abc"), 3u);
}

}  // namespace
