// Hosts often switch the process to the user's locale. Number texts of the
// expression language always use a point, and the text form of values never
// groups digits, so parsing and printing must come out the same under a
// locale whose decimal separator is a comma.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <locale>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

// What a text gives: its value, or the error code it throws.
struct Parsed {
    bool threw = false;
    int code = 0;
    double value = 0;
    std::vector<std::wstring> dump;
};

Parsed ParseAndEvaluate(const wchar_t* text)
{
    Parsed p;
    VexaParser parser;
    ICalculator* calc = nullptr;
    wchar_t list[] = L"x";
    try {
        parser.parse(text, list, &calc);
    } catch (int code) {
        p.threw = true;
        p.code = code;
        if (calc)
            calc->Release();
        return p;
    }
    VEXA_Data x(0.5);
    VEXA_Data r;
    if (calc->Evaluate(1, &x, r) && r.getType() == DT_SCALAR)
        p.value = r.getValue()[0];
    static_cast<Expression*>(calc)->Dump(p.dump);
    calc->Release();
    return p;
}

struct NumberCase {
    const wchar_t* text;
    double value;
};

const NumberCase kNumbers[] = {
    {L"1.5", 1.5},
    {L"0.25*4", 1.0},
    {L".5+5.", 5.5},
    {L"2.5E2", 250.0},
    {L"1.5E-3", 0.0015},
    {L"5.E3", 5000.0},
    {L"1234.5678*x", 617.2839},
    {L"90D", 1.5707963267948966},
    {L"0.5R", 28.64788975654116},
    {L"MAX(1.5, 2.5)", 2.5},
    {L"ATAN2(1.0, 1.0)", 0.7853981633974483},
    {L"IF(0.5: 1.25, 2.5, 3.75)", 3.75},
};

// A comma is never part of a number: at the top level it is an invalid
// character, whatever the host's locale calls a decimal separator.
const wchar_t* const kErrors[] = {L"1,5", L"x+2,25"};

const double kScalars[] = {2.75, -2.75, 0.5, -1234567.9, 1234567.0, 1.0E9};

std::vector<std::wstring> ScalarTexts()
{
    std::vector<std::wstring> texts;
    for (double v : kScalars)
        texts.push_back(static_cast<std::wstring>(VEXA_Data(v)));
    return texts;
}

class CommaLocale : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_saved_c = std::setlocale(LC_ALL, nullptr);
        m_saved_cpp = std::locale();
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"}) {
            try {
                std::locale::global(std::locale(name));  // sets the C locale as well
                m_switched = true;
                m_comma = name;
                break;
            } catch (const std::runtime_error&) {
            }
        }
        if (!m_switched)
            GTEST_SKIP() << "locale de_DE.UTF-8 is not installed here; scripts/setup-deps.sh generates it";
        if (std::strcmp(std::localeconv()->decimal_point, ",") != 0)
            GTEST_SKIP() << "de_DE.UTF-8 does not use a decimal comma on this host";
    }

    void TearDown() override
    {
        if (m_switched) {
            std::locale::global(m_saved_cpp);
            std::setlocale(LC_ALL, m_saved_c.c_str());
        }
    }

    std::string m_saved_c;
    std::locale m_saved_cpp;
    bool m_switched = false;
    std::string m_comma;
};

}  // namespace

TEST_F(CommaLocale, NumbersParseAsUnderTheCLocale)
{

    std::vector<Parsed> under_c;
    std::locale::global(std::locale::classic());
    for (const NumberCase& c : kNumbers)
        under_c.push_back(ParseAndEvaluate(c.text));
    std::locale::global(std::locale(m_comma.c_str()));

    for (std::size_t i = 0; i < std::size(kNumbers); ++i) {
        Parsed p = ParseAndEvaluate(kNumbers[i].text);
        ASSERT_FALSE(p.threw) << "code " << p.code;
        EXPECT_DOUBLE_EQ(p.value, kNumbers[i].value);
        EXPECT_EQ(std::memcmp(&p.value, &under_c[i].value, sizeof p.value), 0) << "differs from the C locale";
        EXPECT_EQ(p.dump, under_c[i].dump);
    }
}

TEST_F(CommaLocale, CommaIsNeverADecimalSeparator)
{
    const int expected[] = {1, 3};
    for (std::size_t i = 0; i < std::size(kErrors); ++i) {
        Parsed p = ParseAndEvaluate(kErrors[i]);
        EXPECT_TRUE(p.threw);
        EXPECT_EQ(p.code, expected[i]);
    }
}

TEST_F(CommaLocale, ScalarTextsMatchTheCLocale)
{
    std::locale::global(std::locale::classic());
    std::vector<std::wstring> under_c = ScalarTexts();
    std::locale::global(std::locale(m_comma.c_str()));

    const std::vector<std::wstring> want = {L"2", L"-2", L"0", L"-1234567", L"1234567", L"1000000000"};
    EXPECT_EQ(under_c, want);
    EXPECT_EQ(ScalarTexts(), want);
}
