// The read-only walk over a calculator's tree, the tree's measure and its
// one-line text.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace testutil;
using namespace vexa;

namespace {

// One node a line: depth, kind-specific text, number of children.
std::wstring Describe(const TreeNodeInfo& n) {
    std::wstring s = std::to_wstring(n.depth) + L" ";
    switch (n.kind) {
    case NodeKind::kOperator: s += std::wstring(1, n.symbol) + L" kind " + std::to_wstring(n.op); break;
    case NodeKind::kCall:
        s += n.function + (n.call == CallKind::kBuiltIn        ? L" built-in"
                           : n.call == CallKind::kRegistered   ? L" registered"
                           : n.call == CallKind::kNumericDerivative ? L" numeric"
                                                               : L" other");
        s += n.numeric_derivative ? L" ~d" : L"";
        break;
    case NodeKind::kConstant: s += ValueText(n.value); break;
    case NodeKind::kParameter: s += L"v:" + std::to_wstring(n.parameter) + L" " + n.parameter_name; break;
    default: s += L"?"; break;
    }
    return s + L" /" + std::to_wstring(n.child_count);
}

std::vector<std::wstring> Walk(ICalculator* calc, const std::vector<std::wstring>* names = nullptr) {
    std::vector<std::wstring> lines;
    WalkTree(calc, [&](const TreeNodeInfo& n) {
        lines.push_back(Describe(n));
        return true;
    }, names);
    return lines;
}

TEST(TreeWalk, ParentsFirstChildrenInOrderWithWhatEachNodeHolds) {
    ParseResult twice = Parse(L"2*a", L"a");
    VEXA_WString name(L"TWICE");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, twice.calc.get()));
    ParseResult r = Parse(L"-x^0.1 % TWICE(STEP(y, 0, 0, 1, 2.5))", L"x,y");
    const std::vector<std::wstring> names = {L"x", L"y"};
    EXPECT_EQ(Walk(r.calc.get(), &names), (std::vector<std::wstring>{
                                               L"0 % kind 4 /2", L"1 - kind 1 /2", L"2 0 /0", L"2 ^ kind 6 /2",
                                               L"3 v:0 x /0", L"3 0.1 /0", L"1 TWICE registered ~d /1",
                                               L"2 STEP built-in ~d /5", L"3 v:1 y /0", L"3 0 /0", L"3 0 /0",
                                               L"3 1 /0", L"3 2.5 /0"}));
    CalcRef d(r.calc->getDerivativeCalculator(1));
    const std::vector<std::wstring> lines = Walk(d.get());
    EXPECT_NE(std::find(lines.begin(), lines.end(), L"2 wrap:TWICE numeric ~d /1"), lines.end()) << Narrow(Text(d.get()));

    // Functions with a symbolic derivative rule are told apart from the rest.
    EXPECT_EQ(Walk(Parse(L"SIN(MAX(x, 1))", L"x").calc.get())[1], L"1 MAX built-in /2");

    // A constant keeps every element and its shape; the visitor can stop the walk.
    CalcRef vec = MakeExpr([](ICalculator*) { return Bin(kMul, Vec3(0.1, 2, -3e-300), C(1)); });
    EXPECT_EQ(Walk(vec.get())[1], L"1 [0.1, 2, -3E-300] /0");
    int seen = 0;
    EXPECT_FALSE(WalkTree(vec.get(), [&seen](const TreeNodeInfo&) { return ++seen < 2; }));
    EXPECT_EQ(seen, 2);

    // No tree: a built-in calculator, an expression without a root.
    CalcRef builtin(Builtin(L"SIN")), empty(new Expression());
    for (ICalculator* c : {builtin.get(), empty.get(), static_cast<ICalculator*>(nullptr)}) {
        EXPECT_FALSE(WalkTree(c, [](const TreeNodeInfo&) { return true; }));
        EXPECT_EQ(MeasureTree(c).nodes, 0u);
        EXPECT_EQ(TreeText(c), L"");
    }
    d.reset();
    r.calc.reset();
    FunctionFactory::getInstance()->UnRegister(name) && twice.calc->Release();
}

TEST(TreeWalk, MeasureMatchesTheDump) {
    std::vector<CalcRef> trees;
    for (const wchar_t* text : {L"x", L"x + y*z", L"STEP(x, 0.25, -7, 1, 2)^-x + PI", L"MAX(x, SIN(x))*x^x"}) {
        ParseResult r = Parse(text);
        trees.push_back(CalcRef(r.calc->getDerivativeCalculator(0)));
        trees.push_back(std::move(r.calc));
    }
    trees.push_back(MakeExpr([](ICalculator* o) {
        return Bin(kAdd, Bin(kSub, nullptr, X(o, 12)), FnOver(nullptr, {Vec3(1, 2, 3), C(-2.5)}));
    }));
    for (const CalcRef& t : trees) {
        const std::vector<std::wstring> lines = DumpOf(t.get());
        std::uint64_t chars = 0;
        for (const std::wstring& l : lines)
            chars += l.size();
        const TreeMeasure m = MeasureTree(t.get());
        EXPECT_EQ(m.nodes, lines.size()) << Narrow(Text(t.get()));
        EXPECT_EQ(m.dump_chars, chars) << Narrow(Text(t.get()));
    }
    EXPECT_EQ(MeasureTree(trees[3].get()).depth, 3);  // x + y*z
}

TEST(TreeText, GroupsOperationsAndWritesNumbersTheLanguageReads) {
    const std::vector<std::wstring> names = {L"TIME"};
    ParseResult r = Parse(L"-(TIME - 1E-5) * 2 ^ 3 ^ 0.5 + STEP(TIME, 0.1, 0, 1, 90D)", L"TIME");
    EXPECT_EQ(TreeText(r.calc.get(), &names), L"((0-(TIME-1E-05))*(2^(3^0.5)))+STEP(TIME, 0.1, 0, 1, 1.5707963267948966)");
    VEXA_Data m(2, 2);
    for (int i = 0; i < 4; ++i)
        m.getValue()[i] = i - 0.0;
    EXPECT_EQ(ValueText(m), L"[[0, 1], [2, 3]]");
    EXPECT_EQ(ValueText(VEXA_Data(-0.0)), L"0");
    EXPECT_EQ(ValueText(VEXA_Data()), L"null");
    // What the text writes reads back as the same tree.
    ParseResult again = Parse(TreeText(r.calc.get(), &names), L"TIME");
    EXPECT_EQ(TreeText(again.calc.get()), TreeText(r.calc.get()));
}

// Negative numbers a tree holds (the parser's trees are written by the
// cases of data/expressions.txt): grouped as operands, alone as arguments.
TEST(TreeText, NegativeNumbersOfTreesBuiltByHand) {
    CalcRef product = MakeExpr([](ICalculator* e) { return Bin(kMul, X(e, 0), C(-2.5)); });
    EXPECT_EQ(TreeText(product.get()), L"v:0*(-2.5)");
    CalcRef call = MakeExpr([](ICalculator*) { return Fn(L"SIN", {C(-1)}); });
    EXPECT_EQ(TreeText(call.get()), L"SIN(-1)");
}

// The derivative of X/2/.../2 nests three levels a quotient and repeats the
// quotient above: 600 quotients write 700,000 characters 1,800 levels deep.
// Its text follows from the rule (u/2)' = ((u'*2) - (u*0))/(2*2).
TEST(TreeText, DeepDerivativeTextIsWhole) {
    const int quotients = 600;
    std::wstring text = L"X", quotient = L"v:0", want = L"((1*2)-(v:0*0))/(2*2)";
    for (int k = 1; k <= quotients; ++k) {
        text += L"/2";
        if (k > 1)
            want = L"(((" + want + L")*2)-(" + quotient + L"*0))/(2*2)";
        quotient = L"(" + quotient + L"/2)";
    }
    ParseResult r = Parse(text, L"X");
    ASSERT_TRUE(r.calc);
    CalcRef d(r.calc->getDerivativeCalculator(0));
    ASSERT_TRUE(d);
    const std::wstring got = TreeText(d.get());
    EXPECT_EQ(got.size(), want.size());
    EXPECT_TRUE(got == want);  // not printed: 700,000 characters
}

}  // namespace
