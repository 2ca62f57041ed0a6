// Hosts often switch the process to the user's locale. Number texts of the
// expression language always use a point, and the text form of values never
// groups digits, so parsing and printing must come out the same under a
// locale whose decimal separator is a comma.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <locale>
#include <string>
#include <vector>

#include "test_util.h"

using namespace testutil;

namespace {

// What every text of tests/data/expressions.txt gives with each parameter at
// 0.5 (the bits of its value, its tree and diagnosis), then the text form of
// some scalars. A comma is never part of a number: "x,y" stays an invalid
// character whatever the locale calls a decimal separator.
std::vector<std::wstring> Outcomes() {
    std::vector<std::wstring> out;
    for (const CaseLine& c : ReadCases("expressions.txt")) {
        vexa::ParseResult p = Parse(c.fields[0], ListOf(c));
        double value = -1;
        try {
            value = Eval(p.calc.get(), std::vector<double>(p.names.size(), 0.5));
        } catch (int code) {
            value = code;
        }
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        out.push_back(std::to_wstring(bits) + L" " + vexa::TreeText(p.calc.get()) + vexa::FromUtf8(p.diagnosis.message));
    }
    for (double v : {2.75, -2.75, 0.5, -1234567.9, 1234567.0, 1.0E9})
        out.push_back(static_cast<std::wstring>(VEXA_Data(v)));
    return out;
}

}  // namespace

TEST(Locale, DecimalCommaChangesNothing) {
    const std::vector<std::wstring> under_c = Outcomes();
    const std::locale saved;
    bool switched = false;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"}) {
        try {
            std::locale::global(std::locale(name));  // sets the C locale as well
            switched = true;
            break;
        } catch (const std::runtime_error&) {
        }
    }
    if (!switched)
        GTEST_SKIP() << "locale de_DE.UTF-8 is not installed here; scripts/setup-deps.sh generates it";
    const bool comma = std::strcmp(std::localeconv()->decimal_point, ",") == 0;
    const std::vector<std::wstring> under_comma = Outcomes();
    std::locale::global(saved);
    if (!comma)
        GTEST_SKIP() << "de_DE.UTF-8 does not use a decimal comma on this host";

    EXPECT_EQ(under_comma, under_c);
    const std::vector<std::wstring> tail = {L"2", L"-2", L"0",
                                            L"-1234567", L"1234567", L"1000000000"};
    EXPECT_EQ(std::vector<std::wstring>(under_comma.end() - tail.size(), under_comma.end()), tail);
}
