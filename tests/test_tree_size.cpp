// Hosts size a dump before they make it: a derivative of a short text can
// need gigabytes of dump lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "parser_test_util.h"

using namespace parser_test;

namespace {

// The size as counted from the lines a dump makes.
vexa::TreeSize FromDump(ICalculator* calc)
{
    std::vector<std::wstring> lines;
    static_cast<Expression*>(calc)->Dump(lines);
    vexa::TreeSize size;
    size.nodes = lines.size();
    for (const std::wstring& line : lines) {
        size.dumpChars += line.size();
        size.depth = std::max<std::uint64_t>(size.depth, line.find_first_not_of(L' ') / 10 + 1);
    }
    return size;
}

bool operator==(const vexa::TreeSize& a, const vexa::TreeSize& b)
{
    return a.nodes == b.nodes && a.depth == b.depth && a.dumpChars == b.dumpChars;
}

}  // namespace

TEST(TreeSize, MatchesTheDumpWithoutMakingIt)
{
    Registered host(L"HOSTED", L"a*a");
    for (const wchar_t* text : {L"x", L"SIN(x)*x-0.0000025/y", L"IF(x-1: -1, 0, {p}*y)", L"MAX(x,y)^2%x",
                                L"STEP(x,0,0,1,10)+POLY(y,1,2,3)", L"HOSTED(x+1)*HOSTED(2)"}) {
        Parsed p(text, L"x,y");
        ASSERT_TRUE(p.ok()) << Narrow(text);
        for (ICalculator* c : {p.calc, p.calc->getDerivativeCalculator(0), p.calc->getDerivativeCalculator(1)}) {
            EXPECT_TRUE(vexa::MeasureTree(c) == FromDump(c)) << Narrow(text);
            if (c != p.calc)
                c->Release();
        }
    }
    Expression* empty = new Expression();
    EXPECT_TRUE(vexa::MeasureTree(empty) == vexa::TreeSize());
    empty->Release();

    // x/2/2/.../2: the derivative nests a copy of the quotient at every
    // level, 254,501 nodes 1,501 deep: 1.7 billion characters (6.8 GB) of
    // dump, mostly indentation.
    Parsed p((L"x" + Repeat(L"/2", 500)).c_str(), L"x");
    ICalculator* d = p.calc->getDerivativeCalculator(0);
    const vexa::TreeSize size = vexa::MeasureTree(d);
    EXPECT_EQ(size.nodes, 254501u);
    EXPECT_EQ(size.depth, 1501u);
    EXPECT_GT(size.dumpChars, 1700000000u);
    d->Release();
}
