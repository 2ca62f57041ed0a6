#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "parser_test_util.h"

using namespace parser_test;

namespace {

typedef std::vector<std::wstring> Names;

Names NamesOf(VexaParser& parser)
{
    Names names;
    for (int i = 0; i < parser.getParamsNum(); ++i)
        names.push_back(parser.getParam(i).getWChar_t());
    return names;
}

TEST(ParserParams, HostListsGiveNamesOrAreRejected)
{
    struct Case {
        const wchar_t* list;  // null stands for a null list
        bool accepted;
        Names names;
    };
    const Case cases[] = {
        {nullptr, true, {}},         {L"", true, {}},
        {L"x, y, z", true, {L"x", L"y", L"z"}},
        {L"a b", true, {L"ab"}},     {L",x", true, {L"", L"x"}},
        {L"a,,b", true, {L"a", L"", L"b"}},
        {L"a,", true, {L"a", L""}},  {L"{x", true, {L"{x"}},
        {L"Sin,tan", true, {L"Sin", L"tan"}},
        {L"x,y ", false, {}}, {L"  ", false, {}},   {L"x1", false, {}},    {L"x_y", false, {}},
        {L"{x}", false, {}},  {L"x\ty", false, {}}, {L"x,sin", false, {}}, {L"SIN", false, {}},
    };
    for (const Case& c : cases) {
        const std::string label = c.list ? Narrow(c.list) : "(null)";
        VexaParser parser;
        std::wstring buffer = c.list ? c.list : L"";
        ICalculator* const untouched = reinterpret_cast<ICalculator*>(0x1);
        ICalculator* calc = untouched;
        const bool accepted = parser.parse(L"1", c.list ? &buffer[0] : nullptr, &calc);
        EXPECT_EQ(accepted, c.accepted) << label;
        if (!accepted) {
            EXPECT_EQ(calc, untouched) << label;
            continue;
        }
        EXPECT_EQ(NamesOf(parser), c.names) << label;
        calc->Release();
    }

    const std::wstring longest = L"x," + std::wstring(255, L'a');
    EXPECT_TRUE(Parsed(L"1", longest.c_str()).accepted);
    EXPECT_FALSE(Parsed(L"1", (longest + L"a").c_str()).accepted);
}

TEST(ParserParams, ExpressionNamesFollowHostNamesInOrderOfFirstAppearance)
{
    struct Case {
        const wchar_t* text;
        const wchar_t* list;
        Names names;
        const wchar_t* tree;
    };
    const Case cases[] = {
        {L"x+y+X", L"x", {L"x", L"y"}, L"((v:0+v:1)+v:0)"},
        {L"b*a", L"a,b,c", {L"a", L"b", L"c"}, L"(v:1*v:0)"},
        {L"pi*{p q}+Rtod", L"", {L"{p q}"}, L"((3*v:0)+57)"},
        {L"Q+q+X12+x12", L"", {L"Q", L"X12"}, L"(((v:0+v:0)+v:1)+v:1)"},
        {L"b", L"a,,b", {L"a", L"", L"b"}, L"v:2"},
        {L"x", L"x,X", {L"x", L"X"}, L"v:0"},
        // Named constants come first, so such a parameter is never read.
        {L"pi", L"pi", {L"pi"}, L"3"},
    };
    for (const Case& c : cases) {
        Parsed p(c.text, c.list);
        ASSERT_TRUE(p.ok()) << Narrow(c.text) << " threw " << p.code;
        EXPECT_EQ(NamesOf(p.parser), c.names) << Narrow(c.text);
        EXPECT_EQ(TreeOf(p.calc), c.tree) << Narrow(c.text);
    }

    Parsed p(L"a - 10*b + 100*c", L"c");
    EXPECT_EQ(EvaluateWith(p.calc, {3, 1, 2}), 1 - 20 + 300);
    // A list name that is a function only when upper-cased passes the list
    // check but reads as a call without arguments in the text.
    EXPECT_EQ(ErrorOf(L"tan+1", L"Sin,tan"), 3);
}

TEST(ParserParams, CopyAndAssignmentCopyNamesAndFlag)
{
    VexaParser parser;
    EXPECT_FALSE(parser.canPlot());
    wchar_t list[] = L"x";
    ICalculator* calc = nullptr;
    ASSERT_TRUE(parser.parse(L"x+y", list, &calc));
    calc->Release();

    VexaParser copy(parser);
    VexaParser assigned;
    assigned = parser;
    for (VexaParser* other : {&copy, &assigned}) {
        EXPECT_EQ(NamesOf(*other), (Names{L"x", L"y"}));
        EXPECT_TRUE(other->canPlot());
    }
    ASSERT_TRUE(parser.parse(L"1", nullptr, &calc));
    calc->Release();
    EXPECT_EQ(parser.getParamsNum(), 0);
    EXPECT_EQ(copy.getParamsNum(), 2);
}

}  // namespace
