// Calls of every argument count from 0 to 64, through every compiled path:
// registered functions (which take any number of arguments beyond their
// parameters) and the built-ins over argument lists, evaluated past the
// switch to machine code, with their derivatives, many at once and with
// gradients. Every value must be the tree's, bit for bit; a count the
// built-in refuses must not parse.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "compiled_expression_util.h"
#include "vexa/calc/expression_access.h"

using namespace form_test;
using vexa_calc::ExpressionAccess;

namespace {

constexpr int kMostArgs = 64;

// Argument j of a list: parameters, computed values and constants, each
// linear in the parameters with integer slopes (so that gradients are
// exact), in turn.
std::string Arg(int j)
{
    const std::string n = std::to_string(j);
    switch (j % 7) {
    case 0: return "x";
    case 1: return "y";
    case 2: return "x+" + n;
    case 3: return "y*" + n;
    case 4: return "z";
    case 5: return "x-y";
    default: return n;
    }
}

// The slopes of Arg(j) by x, y and z.
void Slopes(int j, double s[3])
{
    static const double kTable[7][3] = {{1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, 0}, {0, 0, 1}, {1, -1, 0}, {0, 0, 0}};
    for (int k = 0; k < 3; ++k)
        s[k] = kTable[j % 7][k];
    if (j % 7 == 3)
        s[1] = j;
}

std::string List(int from, int count)
{
    std::string s;
    for (int j = from; j < from + count; ++j)
        s += (j > from ? "," : "") + Arg(j);
    return s;
}

// Names of letters only (a listed name holds no digit): PA, PB, ... for
// parameters, WTAB, WTAC, ... for the weighing functions.
std::string Letters(int i)
{
    return {static_cast<char>('A' + i / 26), static_cast<char>('A' + i % 26)};
}

std::string ParamName(int i)
{
    return "P" + Letters(i);
}

std::string Weigher(int k)
{
    return "WT" + Letters(k);
}

// Weigher(k) of P1, ..., Pk is P1*1 + ... + Pk*k: every argument counts in
// its own place.
std::string Weighed(int k)
{
    std::string text;
    for (int i = 1; i <= k; ++i)
        text += (i > 1 ? "+" : "") + ParamName(i) + "*" + std::to_string(i);
    return text;
}

class CompiledArity : public ::testing::Test {
public:
    static void SetUpTestSuite()
    {
        Register(L"GONE", "A+1", L"A");
        for (int k = 1; k <= kMostArgs; ++k) {
            std::string names;
            for (int i = 1; i <= k; ++i)
                names += (i > 1 ? "," : "") + ParamName(i);
            const std::string name = Weigher(k);
            Register(std::wstring(name.begin(), name.end()).c_str(), Weighed(k),
                     std::wstring(names.begin(), names.end()).c_str());
        }
    }
};

std::vector<double> Point(int i)
{
    return {0.25 * i - 1.3, 0.7 + i / 16.0, -2.5 + i / 8.0};
}

// calc evaluated repeatedly (past the switch to machine code) against its
// tree-only twin; answers whether machine code took over.
bool EvaluatesAsTree(ICalculator* calc, const std::string& text)
{
    Expression* e = static_cast<Expression*>(calc);
    Calc twin = TreeOnly(calc);
    // One-step evaluations before machine code takes over: 64 unless the
    // environment says otherwise.
    const char* after = std::getenv("VEXA_MACHINE_CODE_AFTER");
    const int runs = (after && *after ? std::atoi(after) : 64) + 6;
    auto first = ExpressionAccess::FastPath(*e);
    for (int i = 0; i < runs; ++i) {
        const vexa::Outcome fast = Reference(calc, Point(i));
        const vexa::Outcome tree = Reference(twin.get(), Point(i));
        EXPECT_TRUE(Same(fast, tree)) << text << " run " << i << ": " << Show(fast) << " against " << Show(tree);
        if (i == 0)
            first = ExpressionAccess::FastPath(*e);
    }
    return ExpressionAccess::FastPath(*e) != first;
}

// The compiled form of calc over 150 points at once and one by one, against
// the tree; gradients' values against it too.
void ManyAsTree(ICalculator* calc, const std::string& text, bool exactSlopes, const double* slopes)
{
    const auto form = vexa::CompiledExpression::Make(calc, 3);
    ASSERT_TRUE(form) << text;
    EXPECT_TRUE(form->runsAsProgram()) << text;
    Calc twin = TreeOnly(calc);
    const std::size_t n = 150;
    std::vector<double> xyz, results(n);
    for (std::size_t i = 0; i < n; ++i) {
        const std::vector<double> p = Point(static_cast<int>(i));
        xyz.insert(xyz.end(), p.begin(), p.end());
    }
    const vexa::Column columns[] = {{xyz.data(), 3}, {xyz.data() + 1, 3}, {xyz.data() + 2, 3}};
    vexa::Options options;
    options.threads = 1;
    form->EvaluateMany(n, columns, results.data(), options);
    vexa::Workspace ws(*form);
    for (std::size_t i = 0; i < n; i += 7) {
        const vexa::Outcome tree = Reference(twin.get(), Point(static_cast<int>(i)));
        ASSERT_TRUE(tree.ok()) << text;
        EXPECT_EQ(Bits(results[i]), Bits(tree.value)) << text << " point " << i;
        double grad[3];
        const vexa::Outcome g = form->Gradient(&xyz[3 * i], grad, ws);
        ASSERT_TRUE(Same(g, tree)) << text << " gradient at point " << i << ": " << Show(g);
        for (int k = 0; exactSlopes && k < 3; ++k)
            EXPECT_EQ(grad[k], slopes[k]) << text << " d/d" << "xyz"[k];
    }
}

TEST_F(CompiledArity, RegisteredCallsOfEveryCount)
{
    for (int k = 0; k <= kMostArgs; ++k) {
        // GONE reads only its first argument; the weigher reads all of them.
        for (const std::string& name : {std::string("GONE"), Weigher(k)}) {
            if (k == 0 && name != "GONE")
                continue;
            const std::string text = "x*1+" + name + "(" + List(0, k) + ")";
            Calc calc = Parse(text);
            ASSERT_TRUE(calc) << text;
            if (k == 0) {
                // A call without arguments is the tree's (it has no value).
                EvaluatesAsTree(calc.get(), text);
                continue;
            }
            EXPECT_EQ(EvaluatesAsTree(calc.get(), text), form_test::MakesMachineCode()) << text << " machine code";
            double slopes[3] = {1, 0, 0};
            for (int j = 0; j < (name == "GONE" ? 1 : k); ++j) {
                double s[3];
                Slopes(j, s);
                for (int m = 0; m < 3; ++m)
                    slopes[m] += (name == "GONE" ? 1 : j + 1) * s[m];
            }
            ManyAsTree(calc.get(), text, true, slopes);
            Calc d(calc->getDerivativeCalculator(1));
            ASSERT_TRUE(d) << text;
            EvaluatesAsTree(d.get(), "d/dy " + text);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_F(CompiledArity, ListBuiltinsOfEveryCount)
{
    struct Builtin {
        const char* name;
        int fewest, most;
    };
    const Builtin kBuiltins[] = {
        {"POLY", 3, 33},  {"CHEBY", 3, 33}, {"FORCOS", 4, 34}, {"FORSIN", 4, 34}, {"IF", 4, 4},
        {"STEP", 5, 5},   {"STEP5", 5, 5},  {"HAVSIN", 5, 5},  {"SHF", 6, 6},     {"IMPACT", 7, 7},
        {"SWEEP", 7, 7},  {"BISTOP", 8, 8},
    };
    for (const Builtin& b : kBuiltins) {
        for (int k = 0; k <= kMostArgs; ++k) {
            // Small coefficients keep the series' values ordinary.
            std::string args = List(0, k < 3 ? k : 3);
            for (int j = 3; j < k; ++j)
                args += ",(" + Arg(j) + ")/" + std::to_string(8 * j);
            // IMPACT and BISTOP read the distance and velocity as braced
            // names, which follow the listed x and y; z is left out.
            const bool braced = b.name == std::string("IMPACT") || b.name == std::string("BISTOP");
            if (braced) {
                args = k == 0 ? "" : k == 1 ? "{Z}" : "{Z},{Z}*2";
                for (int j = 2; j < k; ++j)
                    args += ",(" + (Arg(j) == "z" ? std::string("2.5") : Arg(j)) + ")/" + std::to_string(8 * j);
            }
            const std::string text = "x*1+" + std::string(b.name) + "(" + args + ")";
            Calc calc = Parse(text, braced ? L"x,y" : L"x,y,z");
            if (k < b.fewest || k > b.most) {
                EXPECT_FALSE(calc) << text;
                continue;
            }
            ASSERT_TRUE(calc) << text;
            EXPECT_EQ(EvaluatesAsTree(calc.get(), text), form_test::MakesMachineCode()) << text << " machine code";
            ManyAsTree(calc.get(), text, false, nullptr);
            // Derivatives by x: central differences of the built-in.
            Calc d(calc->getDerivativeCalculator(0));
            ASSERT_TRUE(d) << text;
            EvaluatesAsTree(d.get(), "d/dx " + text);
            ManyAsTree(d.get(), "d/dx " + text, false, nullptr);
            if (HasFatalFailure())
                return;
        }
    }
}

}  // namespace
