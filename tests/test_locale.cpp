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

#include "parser_test_util.h"

using namespace parser_test;

namespace {

// What each text gives at x = 0.5 (the bits of its value and its tree, or the
// code it throws), then the text form of some scalars.
std::vector<std::wstring> Outcomes()
{
    const wchar_t* const texts[] = {
        L"1.5", L"0.25*4", L".5+5.", L"2.5E2", L"1.5E-3", L"5.E3", L"1234.5678*x", L"90D", L"0.5R",
        L"MAX(1.5, 2.5)", L"ATAN2(1.0, 1.0)", L"IF(0.5: 1.25, 2.5, 3.75)",
        // A comma is never part of a number: at the top level it is an
        // invalid character, whatever the locale calls a decimal separator.
        L"1,5", L"x+2,25",
    };
    std::vector<std::wstring> out;
    for (const wchar_t* text : texts) {
        Parsed p(text, L"x");
        if (!p.ok()) {
            out.push_back(L"error " + std::to_wstring(p.code));
            continue;
        }
        const double value = EvaluateWith(p.calc, {0.5});
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        out.push_back(std::to_wstring(bits) + L" " + TreeOf(p.calc));
    }
    for (double v : {2.75, -2.75, 0.5, -1234567.9, 1234567.0, 1.0E9})
        out.push_back(static_cast<std::wstring>(VEXA_Data(v)));
    return out;
}

}  // namespace

TEST(Locale, DecimalCommaChangesNothing)
{
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
    const std::vector<std::wstring> tail = {L"error 1",  L"error 3", L"2", L"-2", L"0",
                                            L"-1234567", L"1234567", L"1000000000"};
    EXPECT_EQ(std::vector<std::wstring>(under_comma.end() - tail.size(), under_comma.end()), tail);
}
