// The compiled program against the tree it was made from: generated
// expressions and parameter sets (special values, vectors, matrices, nulls,
// too few values) evaluated both ways must agree bit for bit in the result,
// the answer of Evaluate, the thrown code and the held parameters of the
// registered functions the expressions call. So must their derivatives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "compiled_expression_util.h"
#include "vexa/calc/expression_access.h"
#include "vexa/vexa.h"

namespace {

using vexa_calc::ExpressionAccess;

struct Call {
    const char* name;
    int fewest;
    int most;
};

const Call kCalls[] = {
    {"SIN", 1, 1},   {"COS", 1, 1},    {"TAN", 1, 1},    {"ASIN", 1, 1},   {"ACOS", 1, 1},  {"ATAN", 1, 1},
    {"SINH", 1, 1},  {"COSH", 1, 1},   {"TANH", 1, 1},   {"EXP", 1, 1},    {"LOG", 1, 1},   {"LOG10", 1, 1},
    {"SQRT", 1, 1},  {"ABS", 1, 1},    {"AINT", 1, 1},   {"ANINT", 1, 1},  {"ATAN2", 2, 2}, {"MAX", 2, 2},
    {"MIN", 2, 2},   {"MOD", 2, 2},    {"SIGN", 2, 2},   {"IF", 4, 4},     {"STEP", 5, 5},  {"STEP5", 5, 5},
    {"HAVSIN", 5, 5}, {"SHF", 6, 6},   {"SWEEP", 7, 7},  {"POLY", 3, 33},  {"CHEBY", 3, 9}, {"FORCOS", 4, 34},
    {"FORSIN", 4, 8}, {"DX", 1, 3},    {"UV", 1, 1},     {"FTWO", 2, 2},   {"GINV", 1, 1},
};

class AnyCallCaseGenerator {
public:
    explicit AnyCallCaseGenerator(unsigned seed) : m_rng(seed) {}

    std::string Expression(int depth)
    {
        const int pick = Uniform(0, depth <= 0 ? 3 : 13);
        switch (pick) {
        case 0: return Constant();
        case 1:
        case 2:
        case 3: return Name();
        case 4:
        case 5:
        case 6: return "(" + Expression(depth - 1) + Operator() + Expression(depth - 1) + ")";
        case 7: return "-" + Expression(depth - 1);
        case 8: return Expression(depth - 1) + "^" + Expression(depth - 1);
        case 9:
            return "IMPACT({D}, {V}, " + Expression(depth - 2) + ", 1E3, 1.5, " + Expression(depth - 2) +
                   ", 0.01)";
        default: return Function(depth - 1);
        }
    }

    int Uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }

    double Value()
    {
        static const double kSpecial[] = {0.0, -0.0, 1.0, -1.0, 0.5, 2.0, -2.5, 1e300, -1e-300, 3.75,
                                          std::numeric_limits<double>::infinity(), -1e-8,
                                          std::numeric_limits<double>::quiet_NaN(), 0.001};
        if (Uniform(0, 2) == 0)
            return kSpecial[Uniform(0, sizeof(kSpecial) / sizeof(kSpecial[0]) - 1)];
        return std::uniform_real_distribution<double>(-4.0, 4.0)(m_rng);
    }

private:
    std::string Constant()
    {
        static const char* const kConstants[] = {"0", "1", "2", "0.5", "3.25", "1E-3", "PI", "90D", "1E300", "0.0"};
        return kConstants[Uniform(0, 9)];
    }

    std::string Name()
    {
        static const char* const kNames[] = {"x", "y", "z", "x", "{D}", "{V}"};
        return kNames[Uniform(0, 5)];
    }

    std::string Operator()
    {
        static const char* const kOps[] = {"+", "-", "*", "/", "+", "*", "%", "-", "/", "**"};
        return kOps[Uniform(0, 9)];
    }

    std::string Function(int depth)
    {
        const Call& c = kCalls[Uniform(0, sizeof(kCalls) / sizeof(kCalls[0]) - 1)];
        const int n = Uniform(c.fewest, c.most);
        std::string s = std::string(c.name) + "(";
        for (int i = 0; i < n; ++i)
            s += (i ? "," : "") + (i < 3 ? Expression(depth) : Constant());
        return s + ")";
    }

    std::mt19937 m_rng;
};

class CompiledDifferential : public ::testing::Test {
public:
    static void SetUpTestSuite()
    {
        form_test::Register(L"FTWO", "u*v+SQRT(u)", L"u,v");
        form_test::Register(L"GINV", "1/u-u", L"u");
    }
};

VEXA_Data MakeValue(AnyCallCaseGenerator& g)
{
    switch (g.Uniform(0, 15)) {
    case 0: {
        VEXA_Data v(1, 3);
        for (int i = 0; i < 3; ++i)
            v.getValue()[i] = g.Value();
        return v;
    }
    case 1: {
        VEXA_Data v(3, 3);
        for (int i = 0; i < 9; ++i)
            v.getValue()[i] = g.Value();
        return v;
    }
    case 2: return VEXA_Data();
    default: return VEXA_Data(g.Value());
    }
}

// Evaluates calc (compiled) and its twin (tree only) on the same values and
// requires the same outcome, the parameters the registered functions hold
// included; counts in compiled whether the program produced it.
void Compare(ICalculator* calc, ICalculator* twin, AnyCallCaseGenerator& g, int params, const std::string& text, int& compiled)
{
    std::vector<ICalculator*> registered;
    for (const wchar_t* name : {L"FTWO", L"GINV"}) {
        VEXA_WString key(name);
        registered.push_back(FunctionFactory::getInstance()->CreateFunction(key));
        ASSERT_TRUE(registered.back());
    }
    for (int set = 0; set < 6; ++set) {
        std::vector<VEXA_Data> values;
        const bool scalars = set < 4;
        for (int i = 0; i < params; ++i)
            values.push_back(scalars ? VEXA_Data(g.Value()) : MakeValue(g));
        const int count = set == 5 && params > 0 ? params - 1 : params;
        std::vector<VEXA_Data> copy = values;
        std::vector<ICalculator*> holders = registered;
        holders.push_back(calc);
        const std::string fast = form_test::Evaluated(calc, values, count, holders);
        holders.back() = twin;
        ASSERT_EQ(fast, form_test::Evaluated(twin, copy, count, holders)) << text << " set " << set;
    }
    for (ICalculator* r : registered)
        r->Release();
    if (ExpressionAccess::RunsCompiled(*static_cast<Expression*>(calc)))
        ++compiled;
}

TEST_F(CompiledDifferential, ProgramAndTreeAgreeBitForBit)
{
    // VEXA_DIFF_SEED explores other expressions than the fixed default.
    const char* seed = std::getenv("VEXA_DIFF_SEED");
    AnyCallCaseGenerator g(seed ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 20261123u);
    int parsed = 0, compiled = 0, derived = 0;
    for (int round = 0; round < 2500; ++round) {
        const std::string text = g.Expression(g.Uniform(1, 5));
        vexa::ParseResult r = vexa::TryParse(std::wstring(text.begin(), text.end()).c_str(), L"x,y,z");
        if (!r.calc)
            continue;
        ICalculator* calc = r.calc.get();
        const int params = static_cast<int>(r.names.size());
        ++parsed;
        Compare(calc, form_test::TreeOnly(calc).get(), g, params, text, compiled);

        ICalculator* d = calc->getDerivativeCalculator(g.Uniform(0, 2));
        if (d) {
            int ignored = 0;
            Compare(d, form_test::TreeOnly(d).get(), g, params, "d " + text, ignored);
            ++derived;
            d->Release();
        }
        if (HasFatalFailure())
            return;
    }
    std::printf("%d parsed, %d compiled, %d derivatives\n", parsed, compiled, derived);
    // The comparison must have had programs to compare.
    EXPECT_GT(parsed, 1500);
    EXPECT_GT(compiled, parsed / 2);
    EXPECT_GT(derived, 1000);
}

}  // namespace
