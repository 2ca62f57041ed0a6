#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "small_stack.h"
#include "test_util.h"

using namespace testutil;

namespace {

std::wstring Nested(const wchar_t* name, int depth, const wchar_t* inner) {
    return Repeat(name, depth) + inner + Repeat(L")", depth);
}

std::vector<std::vector<std::string>> Cases(const char* test) {
    const auto cases = Section("long_texts.txt", test);
    EXPECT_FALSE(cases.empty()) << test;
    return cases;
}

TEST(ParserLimits, CallsNestAtMostOneHundredDeep) {
    EXPECT_EQ(Eval(Parse(Nested(L"ABS(", 100, L"x")).calc.get(), {-2}), 2);
    // Many calls side by side at the deepest level are fine.
    EXPECT_EQ(Eval(Parse(Nested(L"ABS(", 99, L"ABS(1)+ABS(x)")).calc.get(), {-2}), 3);
    // A refused parse does not leave the count raised for the next one.
    VexaParser parser;
    EXPECT_THROW(parser.parse(Nested(L"ABS(", 101, L"x").c_str(), nullptr, nullptr), int);
    EXPECT_EQ(vexa::DiagnoseLastParse(parser).problem, vexa::ParseProblem::kCallsTooDeep);
    EXPECT_TRUE(parser.parse(Nested(L"ABS(", 100, L"x").c_str(), nullptr, nullptr));
}

struct DeepCase {
    std::wstring text;
    double x, value;
    bool hasDerivative;
    double derivative;
};

// Parse, evaluate, copy, differentiate and release one text.
void Exercise(const DeepCase& c) {
    const std::string label = Narrow(c.text.substr(0, 12)) + "... (" + std::to_string(c.text.size()) + ")";
    vexa::ParseResult p = Parse(c.text, L"x");
    ASSERT_TRUE(p.calc) << label << ": " << p.diagnosis.message;
    const double value = Eval(p.calc.get(), {c.x});
    EXPECT_NEAR(value, c.value, 1e-9 * std::fabs(c.value) + 1e-12) << label;
    vexa::CalcRef copy(static_cast<Expression*>(p.calc.get())->Copy());
    EXPECT_EQ(Eval(copy.get(), {c.x}), value) << label;
    // Without a derivative expected it may outgrow its node budget (null) or
    // not; either way the host must survive.
    vexa::CalcRef d(p.calc->getDerivativeCalculator(0));
    if (c.hasDerivative) {
        ASSERT_TRUE(d) << label;
        EXPECT_NEAR(Eval(d.get(), {c.x}), c.derivative, 1e-6 * std::fabs(c.derivative)) << label;
    }
}

TEST(ParserLimits, DeepestTextsOnASmallStack) {
    // Texts as long as the length limit allows (4095 characters) or as deep
    // as the nesting limits allow.
    std::vector<DeepCase> cases;
    for (const auto& c : Cases("deep"))
        cases.push_back({Expand(c[0]), std::stod(c[1]), std::stod(c[2]), c[3] != "-", c[3] == "-" ? 0 : std::stod(c[3])});
    double s = 0.7, ds = 1;
    for (int i = 0; i < 100; ++i) {
        ds *= std::cos(s);
        s = std::sin(s);
    }
    std::wstring sines = Nested(L"SIN(", 100, L"x");
    for (int i = 0; i < 7; ++i)
        sines += L"+" + Nested(L"SIN(", 100, L"x");
    cases.push_back({sines, 0.7, 8 * s, true, 8 * ds});
    RunOnSmallStack([&cases]() {
        for (const DeepCase& c : cases)
            Exercise(c);
        // Indentation makes a dump grow with nodes times depth, so one text
        // walks the whole depth: x-(x-(...)), 1000 levels.
        vexa::ParseResult p = Parse(Repeat(L"(x-", 1000) + L"x" + Repeat(L")", 1000), L"x");
        const std::vector<std::wstring> lines = DumpOf(p.calc.get());
        EXPECT_EQ(lines.size(), 2001u);
        EXPECT_EQ(lines.back(), std::wstring(10000, L' ') + L"v:0");
    });
}

TEST(ParserLimits, DeepDerivativeTreesAreWalkedMeasuredAndWrittenOnASmallStack) {
    // The quotient rule puts three levels above the derivative of the
    // dividend, so this derivative is about 2,340 levels deep, just within
    // what the library evaluates.
    vexa::ParseResult p = Parse(L"x" + Repeat(L"/2", 780), L"x");
    vexa::CalcRef d(p.calc->getDerivativeCalculator(0));
    ASSERT_TRUE(d);
    // Far less stack than a recursion over 2,340 levels would need.
    RunOnSmallStack<std::function<void()>>([&d]() {
        const vexa::TreeMeasure m = vexa::MeasureTree(d.get());
        EXPECT_GT(m.depth, 2300);
        std::size_t nodes = 0;
        int deepest = 0;
        vexa::WalkTree(d.get(), [&](const vexa::TreeNodeInfo& n) {
            ++nodes;
            deepest = std::max(deepest, n.depth);
            return true;
        });
        EXPECT_EQ(nodes, m.nodes);
        EXPECT_EQ(deepest + 1, m.depth);
        EXPECT_GT(vexa::TreeText(d.get()).size(), m.nodes);
    }, std::size_t(128) << 10);
}

TEST(ParserLimits, TooLongOrTooDeepAndFailingDeepInsideThrowAndReleaseEverything) {
    const auto cases = Cases("code");
    RunOnSmallStack([&]() {
        for (const auto& c : cases) {
            const std::wstring text = Expand(c[0]);
            vexa::ParseResult r = Parse(text);
            EXPECT_EQ(r.calc ? -1 : r.diagnosis.code, std::stoi(c[1])) << c[0] << " (" << text.size() << ")";
        }
    });
}

// A - (0 - ... (0 - leaf)): levels of unary minus over leaf, assembled by
// hand the way a host may build a tree without the parser's limits.
INode* MinusChain(int levels, INode* leaf) {
    for (int i = 0; i < levels; ++i)
        leaf = Bin(vexa::kSub, C(0.0), leaf);
    return leaf;
}

// Registers NAME0 = inner(a), NAMEk = inner(NAME(k-1)(a)) until a definition
// is refused or most are taken; returns how many were taken.
template <class Inner>
int RegisterChain(std::vector<std::unique_ptr<Registered>>& chain, const std::wstring& name, Inner inner, int most) {
    for (int k = 0; k < most; ++k) {
        const std::wstring arg = k == 0 ? L"a" : name + std::to_wstring(k - 1) + L"(a)";
        chain.push_back(std::make_unique<Registered>((name + std::to_wstring(k)).c_str(), inner(arg)));
        if (!chain.back()->ok) {
            EXPECT_EQ(chain.back()->parsed.diagnosis.code, vexa::kCallsTooDeep) << Narrow(name) << k;
            return k;
        }
    }
    return most;
}

TEST(ParserLimits, RegisteredFunctionsCountTowardsTheDepthOnASmallStack) {
    RunOnSmallStack([] {
        // A call continues into the called function's tree, so a text that
        // calls a function deeper than its own level allows is refused:
        // 2097 signs over a function of 2099 levels would be 4200 deep.
        Registered h0(L"H0", Repeat(L"-", 2098) + L"a");
        ASSERT_TRUE(h0.ok);
        EXPECT_EQ(CodeOf(Repeat(L"-", 2097) + L"H0(a)", L"a"), vexa::kCallsTooDeep);
        Exercise({Repeat(L"-", 290) + L"H0(x)", 1.5, 1.5, false, 0});

        // Compositions of functions, as deep as admitted, then refused.
        std::vector<std::unique_ptr<Registered>> chain;
        EXPECT_EQ(RegisterChain(chain, L"M", [](const std::wstring& a) { return Repeat(L"-", 400) + a; }, 10), 5);
        Exercise({L"M4(x)", 1.5, 1.5, true, 1});
        // Each level calls the one below twice: work doubles, depth does not.
        const auto twice = [](const std::wstring& a) {
            return a == L"a" ? std::wstring(L"a+1") : a.substr(0, a.find(L'(')) + L"(" + a + L")";
        };
        EXPECT_EQ(RegisterChain(chain, L"F", twice, 11), 11);
        Exercise({L"F10(x)", 0.5, 1024.5, true, 1});
    });
}

TEST(ParserLimits, RegisteredFunctionChangedAfterItsCallersWereParsed) {
    Registered deepen(L"DEEPEN", L"a"), loop(L"LOOPY", L"a");
    ASSERT_TRUE(deepen.ok && loop.ok);
    vexa::ParseResult looping = Parse(L"LOOPY(x)", L"x");
    ASSERT_TRUE(looping.calc);
    // A caller 2300 levels deep, built by hand so that it is evaluated as a
    // tree, each level on the stack.
    Expression* deep = static_cast<Expression*>(deepen.parsed.calc.get());
    deep->AddRef();
    vexa::CalcRef caller = MakeExpr([&](ICalculator* e) { return MinusChain(2300, FnOver(deep, {X(e, 0)})); });

    // A host may give a registered function a deeper tree: texts parsed from
    // then on are measured with it, and the callers made before meet a test
    // at the call, which refuses what would not fit the stack left, and a
    // tree deeper than any the library admits outright.
    deep->SetRoot(MinusChain(2099, X(deep, 0)));
    EXPECT_EQ(CodeOf(Repeat(L"-", 2000) + L"DEEPEN(x)", L"x"), vexa::kCallsTooDeep);
    RunOnSmallStack([&] {
        const double outcome = OutcomeOf(caller.get(), {1.5});
        if (kGuaranteeBuild)
            EXPECT_EQ(outcome, vexa::kCallsTooDeep);
        else
            EXPECT_TRUE(outcome == -1.5 || outcome == vexa::kCallsTooDeep) << outcome;
    });
    deep->SetRoot(MinusChain(4000, X(deep, 0)));
    RunOnSmallStack([&] { EXPECT_EQ(OutcomeOf(caller.get(), {1.5}), vexa::kCallsTooDeep); });
    caller.reset();

    // A function whose tree calls itself again is refused at the inner call
    // instead of recursing without end.
    Expression* self = static_cast<Expression*>(loop.parsed.calc.get());
    self->AddRef();
    self->SetRoot(FnOver(self, {X(self, 0)}));
    EXPECT_EQ(OutcomeOf(looping.calc.get(), {1}), vexa::kFunctionInUse);
    EXPECT_EQ(CodeOf(L"LOOPY(1)"), vexa::kFunctionInUse);
    self->SetRoot(nullptr);  // gives the loop's reference back

    // A tree too deep to evaluate cannot be registered or differentiated.
    vexa::CalcRef hand = MakeExpr([](ICalculator* e) { return MinusChain(2500, X(e, 0)); });
    VEXA_WString name(L"TOODEEP");
    EXPECT_FALSE(FunctionFactory::getInstance()->Register(name, hand.get()));
    EXPECT_EQ(hand->getDerivativeCalculator(0), nullptr);
}

}  // namespace
