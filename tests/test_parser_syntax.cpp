#include <gtest/gtest.h>

#include <string>

#include "parser_test_util.h"

using namespace parser_test;

namespace {

TEST(ParserSyntax, NumbersAndNamedConstants)
{
    const double pi = 3.141592653589793, rtod = 57.29577951308232;
    struct Case {
        const wchar_t* text;
        double value;
    };
    const Case cases[] = {
        {L"12.5", 12.5}, {L".5", 0.5},     {L"5.", 5},        {L".", 0},
        {L"5.E3", 5000}, {L"1E-5", 1e-5},  {L"2-1E2", -98},   {L"2 3", 23},
        {L"90D", pi / 2}, {L"90d", pi / 2}, {L"1R", rtod},    {L"1R2", rtod},
        {L"1E2r", 100 * rtod}, {L"pi*2", 2 * pi}, {L"Rtod", rtod}, {L"dtor", pi / 180},
        {L"2 * * 3", 8}, {L"2**-3", 0.125}, {L"1 + 2\t\r\n", 3},
    };
    for (const Case& c : cases)
        EXPECT_DOUBLE_EQ(ValueOf(c.text), c.value) << Narrow(c.text);
}

TEST(ParserSyntax, TreesFollowPrecedenceAndGrouping)
{
    struct Case {
        const wchar_t* text;
        const wchar_t* tree;
    };
    const Case cases[] = {
        {L"1+2*3", L"(1+(2*3))"},          {L"(1+2)*3", L"((1+2)*3)"},         {L"2^3^2", L"(2^(3^2))"},
        {L"2***3", L"(2^3)"},              {L"-2^2", L"(0-(2^2))"},            {L"+2^2", L"((0+2)^2)"},
        {L"- -x", L"(0-(0-v:0))"},         {L"!x*@y", L"((0+v:0)*(0-v:1))"},   {L"x-y-z", L"((v:0-v:1)-v:2)"},
        {L"x/y%z", L"((v:0/v:1)%v:2)"},    {L"x%y*z", L"((v:0%v:1)*v:2)"},     {L"-x*y", L"((0-v:0)*v:1)"},
        {L"2*-3", L"(2*(0-3))"},           {L"x+y)", L"(v:0+v:1)"},            {L"(x)-y", L"(v:0-v:1)"},
        {L"((((7))))", L"7"},              {L"1E-5+x", L"(0+v:0)"},
        {L"2*(x+1)^-y", L"(2*((v:0+1)^(0-v:1)))"},
        {L"max(sin(x), min(y, 2))", L"MAX(SIN(v:0),MIN(v:1,2))"},
        {L"IF(x: -1, 0, 1)", L"IF(v:0,(0-1),0,1)"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(TreeOf(c.text), c.tree) << Narrow(c.text);
}

// Positions count in the text after spaces were removed and two stars folded,
// within the text of the level (argument) that failed.
TEST(ParserSyntax, MalformedTextsThrowTheirCode)
{
    struct Case {
        const wchar_t* text;
        int code;
    };
    const Case cases[] = {
        {nullptr, 0},      {L"", 0},           {L"   ", 0},       {L"\t\n", 0},
        {L"1 + #", 2},     {L"1 ** 2 + #", 4}, {L"x+", 0},        {L"*x", 0},
        {L"x*/y", 0},      {L"-", 0},          {L"(x+y", 0},      {L"x(y", 0},
        {L"2(3)", 0},      {L"()", 0},         {L"1e5", 0},       {L"1.2.3", 3},
        {L"1E5E2", 3},     {L"1E2.5", 3},      {L"90D5", 3},      {L"x+90dd", 5},
        {L"1R2R", 0},      {L"x+1R2R", 2},     {L"a\tb", 1},      {L"x_y", 1},
        {L"x,y", 1},       {L"x:y", 1},        {L"}", 0},         {L"a}b", 0},
        {L"x+ {ab", 5},    {L"x+\x00e9", 2},   {L"sin+1", 3},     {L"sin(x", 5},
        {L"sin(", 4},      {L"1+sin((x)", 9},  {L"SIN(1+#)", 2},  {L"MAX(1, 2 3 #)", 2},
        {L"add(1)", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ErrorOf(c.text), c.code) << (c.text ? Narrow(c.text) : "(null)");
}

TEST(ParserSyntax, BracedNamesAreCopiedVerbatim)
{
    const wchar_t* const names[] = {L"{p q-r}", L"{ a**b }", L"{}", L"A{B}", L"x1{2"};
    for (const wchar_t* name : names) {
        Parsed p((std::wstring(L" ") + name + L" ").c_str());
        ASSERT_TRUE(p.ok()) << Narrow(name) << " threw " << p.code;
        ASSERT_EQ(p.parser.getParamsNum(), 1) << Narrow(name);
        EXPECT_EQ(std::wstring(p.parser.getParam(0).getWChar_t()), name);
    }
}

TEST(ParserSyntax, FailedParseLeavesRootlessExpressionAndKeepsNames)
{
    Parsed p(L"a+b+#", L"x");
    EXPECT_EQ(p.code, 4);
    ASSERT_NE(p.calc, nullptr);
    EXPECT_EQ(TreeOf(p.calc), L"");
    EXPECT_TRUE(std::isnan(EvaluateWith(p.calc, {})));
    EXPECT_EQ(p.parser.getParamsNum(), 3);
    // Without an out pointer nothing leaks.
    EXPECT_TRUE(p.parser.parse(L"x+1", nullptr, nullptr));
    EXPECT_EQ(p.parser.getParamsNum(), 1);
    EXPECT_THROW(p.parser.parse(L"x+", nullptr, nullptr), int);
}

TEST(ParserSyntax, LengthLimits)
{
    const std::wstring sum = L"1" + Repeat(L"+1", 2047), sum1020 = Repeat(L"+1", 1020);  // 4095 characters
    struct Case {
        std::wstring text;
        int code;
    };
    const Case cases[] = {
        {sum, kNoError},
        {sum + L" ", 0},
        {std::wstring(100000, L'1'), 0},
        // Tokens hold at most 2047 characters; longer ones throw their start.
        {L"x+" + std::wstring(2047, L'1'), kNoError},
        {L"x+" + std::wstring(2048, L'1'), 2},
        {L"x+" + std::wstring(2047, L'a'), kNoError},
        {L"x+" + std::wstring(2048, L'a'), 2},
        {L"x*{" + std::wstring(2045, L'a') + L"}", kNoError},
        {L"x*{" + std::wstring(2046, L'a') + L"}", 2},
        {L"x-ABS(00" + sum1020 + L")", kNoError},
        {L"x-ABS(000" + sum1020 + L")", 2},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ErrorOf(c.text.c_str()), c.code) << c.text.size() << " chars";
    EXPECT_EQ(ValueOf(sum.c_str()), 2048);
}

}  // namespace
