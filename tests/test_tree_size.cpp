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

vexa::TreeSize FromDump(ICalculator* calc)
{
    std::vector<std::wstring> lines;
    static_cast<Expression*>(calc)->Dump(lines);
    vexa::TreeSize size;
    size.nodes = lines.size();
    for (const std::wstring& line : lines) {
        size.dumpChars += line.size();
        const std::uint64_t level = line.find_first_not_of(L' ') / 10;
        size.depth = std::max(size.depth, level + 1);
    }
    return size;
}

void ExpectSame(const vexa::TreeSize& got, const vexa::TreeSize& want, const std::string& what)
{
    EXPECT_EQ(got.nodes, want.nodes) << what;
    EXPECT_EQ(got.depth, want.depth) << what;
    EXPECT_EQ(got.dumpChars, want.dumpChars) << what;
}

}  // namespace

TEST(TreeSize, MatchesTheDumpOfTreesAndTheirDerivatives)
{
    Registered host(L"HOSTED", L"a*a");
    const wchar_t* const texts[] = {
        L"x", L"SIN(x)*x-0.0000025/y", L"IF(x-1: -1, 0, {p}*y)", L"MAX(x,y)^2%x",
        L"STEP(x,0,0,1,10)+POLY(y,1,2,3)", L"HOSTED(x+1)*HOSTED(2)",
    };
    for (const wchar_t* text : texts) {
        Parsed p(text, L"x,y");
        ASSERT_TRUE(p.ok()) << Narrow(text);
        std::vector<ICalculator*> calcs = {p.calc, static_cast<Expression*>(p.calc)->Copy(),
                                           p.calc->getDerivativeCalculator(0), p.calc->getDerivativeCalculator(1)};
        for (std::size_t i = 0; i < calcs.size(); ++i) {
            ASSERT_NE(calcs[i], nullptr) << Narrow(text);
            ExpectSame(vexa::MeasureTree(calcs[i]), FromDump(calcs[i]), Narrow(text) + " #" + std::to_string(i));
            if (i)
                calcs[i]->Release();
        }
    }
    // Nothing to dump: an expression without a root, a calculator without a
    // tree, no calculator.
    Expression* empty = new Expression();
    ExpectSame(vexa::MeasureTree(empty), {}, "empty");
    empty->Release();
    ExpectSame(vexa::MeasureTree(nullptr), {}, "null");
}

TEST(TreeSize, HugeDumpsAreMeasuredWithoutBeingMade)
{
    // x/2/2/.../2: the derivative nests a copy of the quotient at every
    // level, 254,501 nodes 1,501 deep: 1.7 billion characters (6.8 GB) of
    // dump, mostly indentation.
    Parsed p((L"x" + Repeat(L"/2", 500)).c_str(), L"x");
    ASSERT_TRUE(p.ok());
    ICalculator* d = p.calc->getDerivativeCalculator(0);
    ASSERT_NE(d, nullptr);
    const vexa::TreeSize size = vexa::MeasureTree(d);
    EXPECT_EQ(size.nodes, 254501u);
    EXPECT_EQ(size.depth, 1501u);
    EXPECT_GT(size.dumpChars, 1700000000u);
    d->Release();
}
