// vexa::CompiledExpression against Evaluate point by point: over generated
// expressions, their derivatives, awkward values (signed zeros, NaN,
// infinities), refused calls, divisions by zero, cross products and
// registered functions, every value must match bit for bit and every failed
// point must be reported with Evaluate's failure and code.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include "compiled_expression_util.h"

using namespace form_test;

namespace {

class CompiledBulk : public ::testing::Test {
public:
    static void SetUpTestSuite()
    {
        Register(L"BLEND", "u*v+SQRT(u)", L"u,v");
        Register(L"SAFE", "LOG(u)+5", L"u");
    }
};

// Evaluates calc at n generated points through a form, many at once and one
// by one, and compares both with Evaluate. Returns whether it ran as a
// program.
bool Check(ICalculator* calc, ComputingCaseGenerator& g, const std::string& text, int threads)
{
    std::string why;
    const std::unique_ptr<vexa::CompiledExpression> form = vexa::CompiledExpression::Make(calc, 3, &why);
    EXPECT_TRUE(form) << text << ": " << why;
    if (!form)
        return false;
    // Whole blocks and a part; y interleaved with other data, z held. The
    // first half has no awkward value, so that whole blocks run the paths
    // kept for blocks without a NaN.
    const std::size_t n = 300;
    std::vector<double> x(n), yz(2 * n), results(n);
    for (std::size_t i = 0; i < n; ++i) {
        x[i] = i < n / 2 ? g.Ordinary() : g.Value();
        yz[2 * i] = i < n / 2 ? g.Ordinary() : g.Value();
    }
    const double z = g.Pick(0, 1) ? g.Ordinary() : g.Value();
    const vexa::Column columns[] = {vexa::Column::Values(x.data()), {yz.data(), 2}, vexa::Column::Held(&z)};
    vexa::Options options;
    options.threads = threads;
    options.max_reported = n;
    const vexa::Report report = form->EvaluateMany(n, columns, results.data(), options);

    std::map<std::size_t, vexa::PointFailure> reported;
    for (const vexa::PointFailure& p : report.first)
        reported[p.index] = p;
    EXPECT_EQ(report.failed, reported.size()) << text;
    vexa::Workspace ws(*form);
    for (std::size_t i = 0; i < n; ++i) {
        const std::vector<double> point = {x[i], yz[2 * i], z};
        const vexa::Outcome expected = Reference(calc, point);
        const auto found = reported.find(i);
        const vexa::Outcome many = found == reported.end()
                                       ? vexa::Outcome{results[i], vexa::Failure::kNone, 0}
                                       : vexa::Outcome{results[i], found->second.failure, found->second.code};
        EXPECT_TRUE(Same(many, expected)) << text << " at point " << i << " (" << x[i] << ", " << yz[2 * i] << ", "
                                          << z << "): many " << Show(many) << ", Evaluate " << Show(expected);
        if (i % 7 == 0) {
            const vexa::Outcome one = form->Evaluate(point.data(), ws);
            EXPECT_TRUE(Same(one, expected)) << text << " at point " << i << ": one " << Show(one);
        }
        if (::testing::Test::HasFailure())
            return false;
    }
    return form->runsAsProgram();
}

TEST_F(CompiledBulk, ManyPointsMatchEvaluateBitForBit)
{
    // VEXA_BULK_SEED explores other expressions than the fixed default.
    const char* seed = std::getenv("VEXA_BULK_SEED");
    ComputingCaseGenerator g(seed ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 71u, {"BLEND2", "SAFE1"}, false);
    int checked = 0, programs = 0;
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        const std::string text = g.Expression(g.Pick(1, 4));
        Calc calc = Parse(text);
        if (!calc)
            continue;
        ++checked;
        programs += Check(calc.get(), g, text, round % 3 == 0 ? 2 : 1);
        Calc d(calc->getDerivativeCalculator(g.Pick(0, 2)));
        if (d)
            Check(d.get(), g, "d " + text, 1);
    }
    std::printf("%d expressions, %d as programs\n", checked, programs);
    EXPECT_GT(checked, 200);
    EXPECT_GT(programs, checked / 2);
}

TEST_F(CompiledBulk, ShapedFunctionsOverWholeBlocksOnEveryBranch)
{
    // Ordinary values between 0.1 and 3, so that whole blocks take the
    // vectorised paths, with the ramps between 0.5 and 2.5.
    const char* const texts[] = {
        "STEP(x,0.5,y,2.5,z)", "STEP5(x,y,-1,2.5,z)", "HAVSIN(x,0.5,z,y+0.5,2)", "-SIGN(1,x-1)*STEP(ABS(x-1),0,0,y,1)",
        "IMPACT({D},{V},1,z,1.5,y,0.5)", "SWEEP(x,y,0.5,1,2.5,z,1)", "IF(x-1:y,z,x)*MAX(x,y)-MIN(y,z)",
    };
    ComputingCaseGenerator g(9u, {}, true);
    for (const char* text : texts) {
        Calc calc = Parse(text);
        ASSERT_TRUE(calc) << text;
        Check(calc.get(), g, text, 1);
    }
}

TEST_F(CompiledBulk, ProgramsWithManyRegistersRunInNarrowerBlocks)
{
    // The derivative of a long sum: thousands of registers.
    std::string text = "x";
    for (int k = 1; k < 300; ++k)
        text += "+SIN(x*" + std::to_string(k) + ")/y";
    Calc calc = Parse(text);
    ASSERT_TRUE(calc);
    Calc d(calc->getDerivativeCalculator(0));
    ComputingCaseGenerator g(3u, {}, false);
    EXPECT_TRUE(Check(d.get(), g, "d/dx of a sum of 300 terms", 2));
}

TEST_F(CompiledBulk, StrictModeReportsWhatOrdinaryEvaluationAbsorbs)
{
    using vexa::Failure;
    const struct {
        const char* text;
        double x;
        Failure ordinary;
        double value;  // of the ordinary evaluation
        Failure strict;
        int code;      // of both, where they throw
    } cases[] = {
        {"LOG(x)+5", -1, Failure::kNone, 5, Failure::kRefused, 0},
        {"LOG(x)+5", 1, Failure::kNone, 5, Failure::kNone, 0},
        {"SQRT(x)", -1, Failure::kNull, 0, Failure::kRefused, 0},
        {"DX(LOG(x))", -1, Failure::kNone, 12, Failure::kRefused, 0},
        {"SAFE(x)*2", -1, Failure::kNone, 10, Failure::kRefused, 0},
        {"5+LOG(x)", -1, Failure::kThrown, 0, Failure::kRefused, -10001},
        {"1/x+LOG(x)", 0, Failure::kThrown, 0, Failure::kThrown, -10001},
        {"x%x", 1, Failure::kThrown, 0, Failure::kThrown, -10001},
    };
    for (const auto& c : cases) {
        Calc calc = Parse(c.text, L"x");
        ASSERT_TRUE(calc) << c.text;
        const std::unique_ptr<vexa::CompiledExpression> form = vexa::CompiledExpression::Make(calc.get());
        ASSERT_TRUE(form) << c.text;
        vexa::Workspace ws(*form);
        for (const bool strict : {false, true}) {
            const Failure expected = strict ? c.strict : c.ordinary;
            const vexa::Outcome one = form->Evaluate(&c.x, ws, strict);
            double many = 0;
            vexa::Options options;
            options.strict = strict;
            const vexa::Column column = vexa::Column::Held(&c.x);
            const vexa::Report report = form->EvaluateMany(1, &column, &many, options);
            EXPECT_EQ(one.failure, expected) << c.text << (strict ? " strict" : "");
            EXPECT_EQ(report.failed, expected == Failure::kNone ? 0u : 1u) << c.text;
            if (expected == Failure::kNone) {
                EXPECT_EQ(one.value, c.value) << c.text;
                EXPECT_EQ(many, c.value) << c.text;
            } else {
                EXPECT_TRUE(std::isnan(one.value) && std::isnan(many)) << c.text;
                ASSERT_EQ(report.first.size(), 1u) << c.text;
                EXPECT_EQ(report.first[0].failure, expected) << c.text;
                EXPECT_EQ(report.first[0].code, expected == Failure::kThrown ? c.code : 0) << c.text;
                EXPECT_EQ(report.by_kind[static_cast<int>(expected)], 1u) << c.text;
            }
        }
    }
}

TEST_F(CompiledBulk, ReportsAreCappedAndThreadsSplitWholeBlocks)
{
    Calc calc = Parse("LOG(x)", L"x");
    std::vector<double> x(1000), out(1000);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = i % 2 ? 1.0 + i : -1.0;
    const vexa::Column column = vexa::Column::Values(x.data());
    for (const int threads : {1, 2, 5, 0}) {
        vexa::Options options;
        options.threads = threads;
        options.max_reported = 10;
        const vexa::Report r = vexa::EvaluateMany(calc.get(), 1, x.size(), &column, out.data(), options);
        EXPECT_EQ(r.failed, 500u);
        EXPECT_EQ(r.by_kind[static_cast<int>(vexa::Failure::kNull)], 500u);
        ASSERT_EQ(r.first.size(), 10u);
        EXPECT_EQ(r.first[9].index, 18u);
        EXPECT_EQ(out[999], std::log(1000.0));
    }
    // No points at all, and fewer points than threads.
    EXPECT_TRUE(vexa::EvaluateMany(calc.get(), 1, 0, &column, out.data()).ok());
    vexa::Options many;
    many.threads = 8;
    EXPECT_EQ(vexa::EvaluateMany(calc.get(), 1, 3, &column, out.data(), many).failed, 2u);
}

// A count or stride no buffer can match (a negative count turned unsigned)
// is refused by every bulk entry before a value is written; block
// arithmetic on such a count would wrap to nothing and report success.
TEST_F(CompiledBulk, CountsBeyondAnyBufferAreRefused)
{
    const std::size_t kMax = static_cast<std::size_t>(-1);
    const std::size_t kMostDoubles = static_cast<std::size_t>(PTRDIFF_MAX) / sizeof(double);
    Calc calc = Parse("x*y", L"x,y");
    Calc wrapped(new ComplexStepCalculator(calc.get(), 0));
    const auto form = vexa::CompiledExpression::Make(calc.get(), 2);
    ASSERT_TRUE(form);
    enum Entry { kForm, kFormGradient, kAnyCalculator, kAnyOther };
    struct Case {
        Entry entry;
        std::size_t n;
        std::ptrdiff_t stride;
        int threads;
    } cases[] = {
        {kForm, kMax, 1, 1},           {kForm, kMax - 62, 1, 0},        {kForm, kMostDoubles + 1, 0, 4},
        {kForm, 5, PTRDIFF_MIN, 1},    {kFormGradient, kMax, 1, 1},     {kFormGradient, kMostDoubles / 2 + 1, 1, 2},
        {kFormGradient, 3, PTRDIFF_MAX, 1}, {kAnyCalculator, kMax - 63, 1, 1}, {kAnyOther, kMax, 1, 1},
        {kAnyOther, 9, PTRDIFF_MAX / 8, 1},
    };
    const double x = 2, y = 3;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.entry) + " n " + std::to_string(c.n) + " stride " + std::to_string(c.stride));
        const vexa::Column columns[] = {{&x, c.stride}, {&y, c.stride}};
        double out[2] = {-7, -7}, grads[4] = {-7, -7, -7, -7};
        vexa::Options options;
        options.threads = c.threads;
        const auto refuse = [&] {
            if (c.entry == kForm)
                form->EvaluateMany(c.n, columns, out, options);
            else if (c.entry == kFormGradient)
                form->GradientMany(c.n, columns, out, grads, options);
            else
                vexa::EvaluateMany((c.entry == kAnyCalculator ? calc : wrapped).get(), 2, c.n, columns, out, options);
        };
        EXPECT_THROW(refuse(), std::length_error);
        EXPECT_EQ(out[0], -7);
        EXPECT_EQ(grads[0], -7);
    }
}

TEST_F(CompiledBulk, MakeRefusesWhatItCannotCopyAndKeepsItsOwnCopy)
{
    std::string why;
    EXPECT_FALSE(vexa::CompiledExpression::Make(nullptr, -1, &why));
    EXPECT_FALSE(why.empty());

    // A calculator that is not an Expression: the convenience call still
    // evaluates it point by point.
    Calc sine = Parse("SIN(x)", L"x");
    Calc wrapped(new ComplexStepCalculator(sine.get(), 0));
    EXPECT_FALSE(vexa::CompiledExpression::Make(wrapped.get()));
    const double x[] = {0.0, 1.0};
    double out[2];
    const vexa::Column column = vexa::Column::Values(x);
    EXPECT_TRUE(vexa::EvaluateMany(wrapped.get(), 1, 2, &column, out).ok());
    EXPECT_EQ(Bits(out[1]), Bits(Reference(wrapped.get(), {1.0}).value));

    // A leaf reading another calculator's parameters cannot be copied.
    Calc other = Parse("x", L"x");
    Expression* e = new Expression();
    Calc hold(e);
    e->SetRoot(new VariableParam(other.get(), 0));
    EXPECT_FALSE(vexa::CompiledExpression::Make(e, 1, &why));
    EXPECT_NE(why.find("another calculator"), std::string::npos) << why;

    // A hand-built tree over its own parameters compiles from its copy; the
    // form keeps what it copied when the tree and the registry change.
    e->SetRoot(new OperaterNode(vexa::kMul, new VariableParam(e, 0), new ConstantParam(VEXA_Data(3.0))));
    Register(L"TWICE", "2*u", L"u");
    Calc calls = Parse("TWICE(x)+1", L"x");
    const auto byHand = vexa::CompiledExpression::Make(e, 1);
    const auto registered = vexa::CompiledExpression::Make(calls.get(), 1);
    ASSERT_TRUE(byHand && registered);
    EXPECT_TRUE(byHand->runsAsProgram());
    e->SetRoot(new ConstantParam(VEXA_Data(0.0)));
    VEXA_WString name(L"TWICE");
    ICalculator* twice = FunctionFactory::getInstance()->CreateFunction(name);
    EXPECT_TRUE(FunctionFactory::getInstance()->UnRegister(name));
    twice->Release();
    twice->Release();
    calls.reset();
    vexa::Workspace a(*byHand), b(*registered);
    const double at = 2.0;
    EXPECT_EQ(byHand->Evaluate(&at, a).value, 6.0);
    EXPECT_EQ(registered->Evaluate(&at, b).value, 5.0);
    EXPECT_THROW(byHand->Evaluate(&at, b), std::invalid_argument);
}

}  // namespace
