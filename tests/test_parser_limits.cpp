#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "test_util.h"

using namespace testutil;

namespace {

// The deepest texts must stay within a 1 MiB thread stack (a common default
// on Windows) from parsing to release. Unoptimised and sanitizer builds have
// far bigger frames, so there the same work runs on a roomier stack.
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
const std::size_t kStackBytes = std::size_t(64) << 20;
#else
const std::size_t kStackBytes = std::size_t(1) << 20;
#endif

template <class F>
void RunOnSmallStack(F work, std::size_t bytes = kStackBytes) {
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, bytes), 0);
    pthread_t thread;
    auto entry = [](void* p) -> void* {
        (*static_cast<F*>(p))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, entry, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

std::wstring Nested(const wchar_t* name, int depth, const wchar_t* inner) {
    return Repeat(name, depth) + inner + Repeat(L")", depth);
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
    double s = 0.7, ds = 1;
    for (int i = 0; i < 100; ++i) {
        ds *= std::cos(s);
        s = std::sin(s);
    }
    std::wstring sines = Nested(L"SIN(", 100, L"x");
    for (int i = 0; i < 7; ++i)
        sines += L"+" + Nested(L"SIN(", 100, L"x");
    const DeepCase cases[] = {
        {L"x" + Repeat(L"+x", 2047), 0.5, 1024, true, 2048},
        {L"x" + Repeat(L"^1", 2047), 3, 3, true, 1},
        {L"1" + Repeat(L"^2", 2047), 1, 1, true, 0},
        {Repeat(L"-", 2099) + L"x", 1.5, -1.5, true, -1},
        {Repeat(L"-(", 1364) + L"x*2" + Repeat(L")", 1364), 1.5, 3, true, 2},
        {Repeat(L"(", 2047) + L"x" + Repeat(L")", 2047), 4, 4, true, 1},
        {sines, 0.7, 8 * s, true, 8 * ds},
        {Nested(L"ABS(", 100, (L"x" + Repeat(L"+x", 700)).c_str()), 1, 701, true, 701},
        // Derivatives of nested MAX double at every level.
        {Repeat(L"MAX(", 100) + L"x" + Repeat(L",1)", 100), 0, 1, false, 0},
    };
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
    // dividend, so this derivative is about 2,400 levels deep.
    vexa::ParseResult p = Parse(L"x" + Repeat(L"/2", 800), L"x");
    vexa::CalcRef d(p.calc->getDerivativeCalculator(0));
    ASSERT_TRUE(d);
    // Far less stack than a recursion over 2,400 levels would need.
    RunOnSmallStack<std::function<void()>>([&d]() {
        const vexa::TreeMeasure m = vexa::MeasureTree(d.get());
        EXPECT_GT(m.depth, 2400);
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

TEST(ParserLimits, TooDeepAndFailingDeepInsideThrowAndReleaseEverything) {
    // Errors at the innermost level unwind through every level; the
    // sanitizer build checks that nothing leaks.
    const std::wstring call = L"ABS(x" + Repeat(L"+x", 700) + L")";  // 702 deep
    const std::pair<std::wstring, int> cases[] = {
        {Repeat(L"-", 2099) + L"x", -1},
        {Repeat(L"-", 1398) + call, -1},
        {Repeat(L"-", 2100) + L"x", 0},
        {Repeat(L"-", 1399) + call, 0},
        {Repeat(L"!@", 2047) + L"x", 0},
        // The call opening level 101 throws its position in its argument's text.
        {Nested(L"ABS(", 100, L"1+ABS(x)"), 2},
        {L"x-" + Nested(L"ABS(", 120, L"x"), 0},
        {Nested(L"SIN(", 100, L"x+#"), 2},
        {Nested(L"MAX(1,", 100, L"x+2*"), 0},
        {Nested(L"IMPACT({p},", 30, L"1"), 100},
        {L"x" + Repeat(L"+x", 2046) + L"+#", 4094},
        {Repeat(L"-", 2000) + L"x(", 0},
    };
    RunOnSmallStack([&]() {
        for (const auto& c : cases) {
            vexa::ParseResult r = Parse(c.first);
            EXPECT_EQ(r.calc ? -1 : r.diagnosis.code, c.second)
                << Narrow(c.first.substr(0, 12)) << "... (" << c.first.size() << ")";
        }
    });
}

}  // namespace
