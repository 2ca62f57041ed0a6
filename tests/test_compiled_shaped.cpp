// Evaluations with rows and matrices among the parameters against the tree:
// generated expressions, mostly of shapes that combine, over parameters of
// the declared shapes, of others, nulls and too few; result bits and shape,
// answer, thrown code and held parameters must agree.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif
#if defined(__linux__)
#include <fenv.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "compiled_expression_util.h"
#include "test_util.h"
#include "vexa/compiled/program/shaped_program.h"
#include "vexa/vexa.h"

namespace {

using Dims = vexa_compiled::Shape;

// The parameters: names and declared shapes, in the parser's order.
const wchar_t kNames[] = L"S,T,U,V,W,M,N,R,B";
const Dims kShapes[] = {{1, 1}, {1, 1}, {1, 3}, {1, 3}, {1, 3}, {3, 3}, {3, 3}, {1, 2}, {2, 3}};
const char* const kLetters[] = {"S", "T", "U", "V", "W", "M", "N", "R", "B"};
constexpr int kParams = 9;

enum Kind { kScalar, kRow3, kMat3, kRow2, kMat23, kKinds };

class Generator {
public:
    explicit Generator(unsigned seed) : m_rng(seed) {}

    int Uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }

    // An expression of the kind k; one in twelve subexpressions is of any
    // kind, so that some shapes do not combine.
    std::string Of(Kind k, int depth)
    {
        if (depth > 0 && Uniform(0, 11) == 0)
            k = static_cast<Kind>(Uniform(0, kKinds - 1));
        if (depth <= 0 || Uniform(0, 3) == 0)
            return Leaf(k);
        const std::string s = Of(kScalar, depth - 1);
        switch (k) {
        case kScalar:
            switch (Uniform(0, 5)) {
            case 0: return "SIN(" + s + ")";
            case 1: return "COS(" + Of(kScalar, depth - 1) + ")";
            case 2: return "-" + s;
            case 3: return "(" + s + "/" + Of(kScalar, depth - 1) + ")";
            case 4: return s + "**" + Leaf(kScalar);
            default: return "(" + s + std::string(1, "+-*"[Uniform(0, 2)]) + Of(kScalar, depth - 1) + ")";
            }
        case kRow3:
            switch (Uniform(0, 8)) {
            case 0: return "(" + Of(kRow3, depth - 1) + "%" + Of(kRow3, depth - 1) + ")";
            case 1: return Of(kRow3, depth - 1) + "*" + Of(kMat3, depth - 1);
            case 2: return Of(kRow2, depth - 1) + "*" + Of(kMat23, depth - 1);
            case 3: return "-" + Of(kRow3, depth - 1);
            default: return Mixed(kRow3, s, depth);
            }
        case kMat3:
        case kMat23:  // M*N, B*M
            return Uniform(0, 2) ? Mixed(k, s, depth) : Of(k, depth - 1) + "*" + Of(kMat3, depth - 1);
        default: return Mixed(k, s, depth);
        }
    }

    double Value()
    {
        static const double kSpecial[] = {0.0, -0.0, 1.0, -1.0, 2.0, 1e300, -1e-300, 2.5e-320, -1e-310, HUGE_VAL, NAN};
        if (Uniform(0, 4) == 0)
            return kSpecial[Uniform(0, sizeof(kSpecial) / sizeof(kSpecial[0]) - 1)];
        return std::uniform_real_distribution<double>(-4.0, 4.0)(m_rng);
    }

    VEXA_Data Make(int rows, int cols)
    {
        VEXA_Data v(rows, cols);
        for (int e = 0; e < rows * cols; ++e)
            v.getValue()[e] = Value();
        return v;
    }

private:
    // Sums, differences, scaling and division of a shaped value.
    std::string Mixed(Kind k, const std::string& s, int depth)
    {
        switch (Uniform(0, 4)) {
        case 0: return s + "*" + Of(k, depth - 1);
        case 1: return Of(k, depth - 1) + "*" + s;
        case 2: return "(" + Of(k, depth - 1) + "/" + s + ")";
        default: return "(" + Of(k, depth - 1) + std::string(1, "+-"[Uniform(0, 1)]) + Of(k, depth - 1) + ")";
        }
    }

    std::string Leaf(Kind k)
    {
        static const char* const kConstants[] = {"0", "1", "2.5", "1E-3", "PI", "1E300"};
        static const int kFirst[] = {0, 2, 5, 7, 8, 9};  // the letters of each kind
        if (k == kScalar && Uniform(0, 1))
            return kConstants[Uniform(0, 5)];
        return kLetters[Uniform(kFirst[k], kFirst[k + 1] - 1)];
    }

    std::mt19937 m_rng;
};

// The sets an expression is evaluated over: most of the declared shapes (a
// signature the program keeps), then others that change it.
std::vector<VEXA_Data> MakeSet(Generator& g, int set)
{
    std::vector<VEXA_Data> values;
    for (int i = 0; i < kParams; ++i) {
        Dims d = kShapes[i];
        if (set >= 5 && g.Uniform(0, 3) == 0) {
            static const Dims kOther[] = {{1, 1}, {1, 3}, {3, 3}, {1, 2}, {2, 3}, {3, 1}, {0, 0}};
            d = kOther[g.Uniform(0, 6)];
        }
        values.push_back(d.rows == 0 ? VEXA_Data() : g.Make(d.rows, d.cols));
    }
    return values;
}

// The tree of text over the parameters; null where the parser refuses it.
form_test::Calc Parse(const std::string& text)
{
    return form_test::Parse(text, kNames);
}

bool Shaped(ICalculator* calc) { return vexa_compiled::ShapedProgramSize(*static_cast<Expression*>(calc)) > 0; }
bool Machine(ICalculator* calc) { return vexa_compiled::RunsShapedMachineCode(*static_cast<Expression*>(calc)); }

// Expressions whose machine code ran, of the differential tests.
int g_machine = 0;

// Whether this build makes machine code, and the environment lets it.
bool MachineCodeRuns()
{
#if defined(__x86_64__) || (defined(__aarch64__) && defined(__linux__))
    const char* after = std::getenv("VEXA_MACHINE_CODE_AFTER");
    return !(after && std::atoi(after) < 0);
#else
    return false;
#endif
}

using Sets = std::vector<std::vector<VEXA_Data>>;

// The first set (its parameters, as many as it holds) on which calc and its
// tree-only twin differ in anything a host sees, "" when none does; after()
// runs after each of calc's evaluations. Every other set starts the result
// with a value of its own.
std::string FirstDifference(ICalculator* calc, const Sets& sets, const std::function<void()>& after = nullptr)
{
    const form_test::Calc twin = form_test::TreeOnly(calc);
    for (std::size_t k = 0; k < sets.size(); ++k) {
        std::vector<VEXA_Data> a = sets[k], b = sets[k];
        const int count = static_cast<int>(a.size());
        const std::string fast = form_test::Evaluated(calc, a, count, {calc}, k % 2);
        if (after)
            after();
        const std::string slow = form_test::Evaluated(twin.get(), b, count, {twin.get()}, k % 2);
        if (fast != slow)
            return "set " + std::to_string(k) + ": " + fast + " vs " + slow;
    }
    return "";
}

void Agree(ICalculator* calc, Generator& g, const std::string& text, bool& ran)
{
    bool machine = false;
    Sets sets;
    for (int set = 0; set < 9; ++set) {
        sets.push_back(MakeSet(g, set));
        if (set == 8)
            sets.back().resize(static_cast<std::size_t>(kParams - 1 - g.Uniform(0, 3)));
    }
    ASSERT_EQ(FirstDifference(calc, sets, [&] {
                  ran = ran || Shaped(calc);
                  machine = machine || Machine(calc);
              }),
              "")
        << text;
    g_machine += machine;
}

// Generated expressions and their derivatives, under the floating-point
// settings mxcsr (0: the default environment).
void Differential(unsigned seed, int rounds, unsigned mxcsr)
{
#if defined(__x86_64__)
    const unsigned saved = _mm_getcsr();
    if (mxcsr)
        _mm_setcsr(mxcsr);
#else
    (void)mxcsr;
#endif
    Generator g(seed);
    int parsed = 0, shaped = 0;
    for (int round = 0; round < rounds && !::testing::Test::HasFatalFailure(); ++round) {
        const std::string text = g.Of(static_cast<Kind>(g.Uniform(0, kKinds - 1)), g.Uniform(1, 5));
        const form_test::Calc calc = Parse(text);
        if (!calc)
            continue;
        ++parsed;
        bool ran = false;
        Agree(calc.get(), g, text, ran);
        if (const form_test::Calc d{calc->getDerivativeCalculator(g.Uniform(0, kParams - 1))}) {
            bool ignored = false;  // derivatives seldom combine shapes
            Agree(d.get(), g, "d " + text, ignored);
        }
        shaped += ran;
    }
#if defined(__x86_64__)
    _mm_setcsr(saved);
#endif
    std::printf("%d parsed, %d ran as shaped programs, %d as machine code\n", parsed, shaped, g_machine);
    EXPECT_GT(parsed, rounds * 9 / 10);
    EXPECT_GT(shaped, parsed / 3);
    // Machine code from the first repeated run on (extra.cmake).
    const char* after = std::getenv("VEXA_MACHINE_CODE_AFTER");
    if (MachineCodeRuns() && after && std::string(after) == "0") {
        EXPECT_GT(g_machine, shaped / 2);
    }
    g_machine = 0;
}

TEST(ShapedProgram, AgreesWithTheTreeBitForBit)
{
    const char* seed = std::getenv("VEXA_DIFF_SEED");
    Differential(seed ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 20261125u, 1500, 0);
}

// Every rounding direction, with and without flushing subnormals: the
// program runs the tree's operations under the host's settings.
TEST(ShapedProgram, AgreesWithTheTreeUnderEveryFloatingPointSetting)
{
#if defined(__x86_64__)
    for (unsigned rounding = 0; rounding < 4; ++rounding) {
        for (unsigned flush : {0u, 0x8040u})
            Differential(100 + rounding, 150, 0x1F80u | rounding << 13 | flush);
    }
#else
    GTEST_SKIP() << "sets the x86-64 control register";
#endif
}

// Which trees get a shaped program for the declared shapes: those whose
// shapes combine, and no other (cases in data/shaped_cover.txt).
TEST(ShapedProgram, CoversExactlyTheShapesThatCombine)
{
    Generator g(7);
    const std::vector<testutil::CaseLine> cases = testutil::ReadCases("shaped_cover.txt");
    EXPECT_GT(cases.size(), 15u);
    for (const testutil::CaseLine& c : cases) {
        const std::string line = testutil::Narrow(c.fields[0]);
        const form_test::Calc calc = Parse(line.substr(2));
        ASSERT_TRUE(calc) << line;
        std::vector<VEXA_Data> values = MakeSet(g, 0);
        VEXA_Data result;
        try {
            calc->Evaluate(kParams, values.data(), result);
        } catch (int) {
        }
        EXPECT_EQ(Shaped(calc.get()), line[0] == '1') << line;
    }
}

// Division by a zero or NaN scalar stops the run where the tree throws, and
// a signature that keeps changing ends in the tree for good, with the tree's
// values throughout.
TEST(ShapedProgram, StopsAndSignatureChangesGiveTheTreesOutcome)
{
    const form_test::Calc calc = Parse("(U+V)/S+W*M/T");
    ASSERT_TRUE(calc);
    Generator g(11);
    const double divisors[] = {0.0, -0.0, NAN, 3.0};
    Sets sets;
    for (int round = 0; round < 24; ++round) {
        sets.push_back(MakeSet(g, 0));
        sets.back()[0] = VEXA_Data(divisors[round % 4]);
        // Alternate between 1 x 3 and 1 x 2 rows: more signatures than the
        // bound allows.
        for (int i = 2; i < 5 && round >= 8 && round % 2 == 0; ++i)
            sets.back()[i] = g.Make(1, 2);
    }
    EXPECT_EQ(FirstDifference(calc.get(), sets), "");
    EXPECT_FALSE(Shaped(calc.get()));
}

// Kernels the machine code writes out: more 3 x 3 elements live at once
// than the processor has registers, and divisions that stop at a zero or
// NaN divisor. Their machine code (made in the default environment) must
// give the tree's outcome, and raise nothing the tree does not with traps
// unmasked, at values the tree computes without trapping.
TEST(ShapedProgram, MachineCodeUnderRegisterPressureAndUnmaskedTraps)
{
    Generator g(5);
    for (const char* text : {"(M*N+N*M)*(M*M-N*N)+(M*N-N*M)*(M*M+N*N)+M*(N*(M*N))", "(U%V)*M/S+W*(N/T)-U/S"}) {
        const form_test::Calc calc = Parse(text);
        ASSERT_TRUE(calc) << text;
        Sets sets;
        for (int k = 0; k < 200; ++k) {
            sets.push_back(MakeSet(g, 0));
            // No product or quotient overflows, no inf - inf; NaN elements
            // but no NaN divisor, which the tree compares signalling.
            for (std::size_t i = 0; i < kParams; ++i) {
                VEXA_Data& v = sets.back()[i];
                int rows = 0, cols = 0;
                v.getDataInfo(rows, cols);
                for (int e = 0; e < rows * cols; ++e) {
                    const double x = std::fabs(v.getValue()[e]);
                    if (x > 1e10 || (i < 2 && (x < 1e-10 || std::isnan(x))))
                        v.getValue()[e] = 1.5;
                }
            }
            if (k % 4 == 0)
                sets.back()[0] = VEXA_Data(std::vector<double>{0.0, -0.0, 1e-300}[k / 4 % 3]);
        }
        EXPECT_EQ(FirstDifference(calc.get(), sets), "") << text;
        EXPECT_EQ(Machine(calc.get()), MachineCodeRuns()) << text;
#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))
        std::fflush(nullptr);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // qemu-user and some processors do not trap: nothing to see.
            if (feenableexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW) == -1)
                _exit(0);
            _exit(FirstDifference(calc.get(), sets).empty() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << text << ": status " << status;
#endif
    }
}

// Scalars, then the declared shapes, then both in turn: the machine code of
// either kind hands the other's parameters on, with the tree's outcome.
TEST(ShapedProgram, ScalarAndShapedMachineCodeHandEachOtherOn)
{
    const form_test::Calc calc = Parse("S*U+T*V-W/S+R*B*M");
    ASSERT_TRUE(calc);
    Generator g(3);
    Sets sets[2];
    for (int round = 0; round < 300; ++round) {
        sets[round >= 200].push_back(MakeSet(g, 0));
        if (round < 100 || (round >= 200 && round % 2 == 0)) {
            for (VEXA_Data& v : sets[round >= 200].back())
                v = VEXA_Data(g.Value());
        }
    }
    EXPECT_EQ(FirstDifference(calc.get(), sets[0]), "");
    EXPECT_EQ(Machine(calc.get()), MachineCodeRuns());
    EXPECT_EQ(FirstDifference(calc.get(), sets[1]), "");
}

}  // namespace
