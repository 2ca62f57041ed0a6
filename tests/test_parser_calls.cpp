#include <gtest/gtest.h>

#include <string>

#include "parser_test_util.h"

using namespace parser_test;

namespace {

TEST(ParserCalls, CallsEvaluate)
{
    struct Case {
        const wchar_t* text;
        std::vector<double> params;
        double value;
    };
    const Case cases[] = {
        {L"sin(0)+Cos(0)", {}, 1},    {L"max(1,,2)", {}, 2},         {L"MAX(,1,2,)", {}, 2},
        {L"MAX((1),(2+3))", {}, 5},   {L"IF(x: -1, 0, 1)", {-2}, -1}, {L"IF(x: -1, 0, 1)", {3}, 1},
        // The colon rule covers the whole call text, nested calls included.
        {L"IF(x: MIN(4:2), 0, 1)", {-1}, 2},
        {L"STEP(x,0,0,1,1)", {0.5}, 0.5},
        {L"max(sin(x), min(y, 2))", {0, 5}, 2},
    };
    for (const Case& c : cases) {
        Parsed p(c.text);
        ASSERT_TRUE(p.ok()) << Narrow(c.text) << " threw " << p.code;
        EXPECT_DOUBLE_EQ(EvaluateWith(p.calc, c.params), c.value) << Narrow(c.text);
    }
    // The test evaluation uses ones, not the arguments: -1 is only met later.
    Parsed p(L"SQRT(-1)");
    ASSERT_TRUE(p.ok());
    EXPECT_TRUE(std::isnan(EvaluateWith(p.calc, {})));
}

TEST(ParserCalls, RefusedAndMalformedCallsThrow)
{
    struct Case {
        const wchar_t* text;
        int code;
    };
    const Case cases[] = {
        {L"ABS(1,2)", 100},        {L"ABS()", 100},        {L"DX(,)", 100},   {L"AKISPL(1)", 100},
        {L"MAG(x)", 100},          {L"1+STEP(x,0,0,1)", 100}, {L"MIN(1:2)", 1}, {L"SIN((1)", 7},
        {L"MAX(SIN(1), MIN(1, COS(2*#)))", 2},
        {L"MAX(SIN(1), MIN(1, COS(2*)))", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ErrorOf(c.text), c.code) << Narrow(c.text);
}

TEST(ParserCalls, ContactFunctionsNeedTwoLoneResultObjects)
{
    struct Case {
        const wchar_t* text;
        int code;
        bool canPlot;
    };
    const Case cases[] = {
        {L"1+SIN(x)", kNoError, true},
        {L"IMPACT({p},{v},1,1E5,1.5,10,0.1)", kNoError, false},
        {L"impact(2*{p},{v}-1,1,1,1,1,1)", kNoError, false},
        {L"IMPACT({p}*x,{v},{w},1,1,1,1)", kNoError, false},
        {L"IMPACT({p},{p},1,1,1,1,1)", kNoError, false},
        {L"BISTOP({p},{v},1,2,1,1,1,1)", kNoError, false},
        {L"IMPACT({p},1,1,1,1,1,1)", 100, false},    {L"IMPACT(x,y,1,1,1,1,1)", 100, false},
        {L"IMPACT({p}+{p},{v},1,1,1,1,1)", 100, false},
        {L"BISTOP({p},{v},{w},1,1,1,1,1)", 100, false},
        // Refused by the function before the result objects are looked at.
        {L"IMPACT({p},{v})", 100, true},
        {L"IMPACT({p},{v},1,1,1,1,1)+#", 26, false},
    };
    for (const Case& c : cases) {
        Parsed p(c.text);
        EXPECT_EQ(p.code, c.code) << Narrow(c.text);
        EXPECT_EQ(p.parser.canPlot(), c.canPlot) << Narrow(c.text);
    }
}

TEST(ParserCalls, RegisteredFunctions)
{
    Registered twice(L"TWICE", L"2*a");
    Registered lower(L"Lower", L"a");
    Registered cross(L"CROSSY", L"a%a");
    ASSERT_TRUE(twice.ok && lower.ok && cross.ok);

    Parsed p(L"twice(3)+TWICE(x)");
    ASSERT_TRUE(p.ok()) << p.code;
    EXPECT_EQ(TreeOf(p.calc), L"(TWICE(3)+TWICE(v:0))");
    EXPECT_EQ(EvaluateWith(p.calc, {1}), 8);
    // Without an argument the expression yields no value: the call is refused.
    EXPECT_EQ(ErrorOf(L"TWICE()"), 100);
    // Only an upper-case registration is reachable from text.
    EXPECT_EQ(ErrorOf(L"Lower(1)"), 0);
    // A code thrown while the call is tried passes through unchanged.
    EXPECT_EQ(ErrorOf(L"1+MAX(CROSSY(2),1)"), -10001);
}

}  // namespace
