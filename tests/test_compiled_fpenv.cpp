// Every compiled path against the tree under the floating-point settings a
// host may choose: the four rounding modes with flush-to-zero and
// denormals-are-zero off and on, unmasked traps, and an x87 control word
// the paths must ignore (cases in data/fpenv_cases.txt). The paths are the
// interpreter and the machine code behind Evaluate, and the one-point, bulk
// and gradient runners of CompiledExpression; each must give the tree's
// bits, and none may trap where the tree does not.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#if defined(__x86_64__) && defined(__linux__)
#include <fenv.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xmmintrin.h>
#define VEXA_FPENV_TESTS 1
#define VEXA_FPENV_X86 1
#elif defined(__aarch64__) && defined(__linux__)
#include <fenv.h>
#include <sys/wait.h>
#include <unistd.h>
#define VEXA_FPENV_TESTS 1
#endif

#include "compiled_expression_util.h"
#include "test_util.h"
#include "vexa/calc/expression_access.h"

#if VEXA_FPENV_TESTS

namespace {

using form_test::Bits;
using form_test::Calc;
using form_test::Reference;
using form_test::Same;
using form_test::Show;
using vexa_calc::ExpressionAccess;

const double kSub = 1e-310;  // subnormal

// An expression, and the parameter it is differentiated by (-1: none).
struct Case {
    std::string text;
    int derivative;
};

const std::vector<Case> kCases = [] {
    std::vector<Case> cases;
    for (const testutil::CaseLine& c : testutil::ReadCases("fpenv_cases.txt"))
        cases.push_back({testutil::Narrow(c.fields[0]), std::stoi(testutil::Narrow(c.fields[1]))});
    return cases;
}();

const std::vector<std::vector<double>> kPoints = {
    {0.0, 0.0, 0.0},    {-0.0, 1.0, 2.0},     {kSub, -kSub, 3.0}, {-kSub, 0.5, 1.0},  {0.1, 0.2, 0.3},
    {2.5e-320, -2.0, 1e300}, {1.0, 1.0, 1.0}, {-3.0, 7.0, 1e-300}, {0.7, -kSub, 0.0}, {1.5, 1e-308, -0.0},
    {NAN, 1.0, -1.0},
};

// One environment: the control register (MXCSR without its flags, or
// FPCR), unmasked traps set through fenv as a host would, or the x87
// control word at single precision rounding toward zero (no part of any
// path: it must change nothing).
enum class Set { kControl, kTraps, kX87 };
struct Env {
    std::string name;
    unsigned control;
    Set set;
};

#if VEXA_FPENV_X86
const unsigned kFlagBits = 0x3Fu;
unsigned GetControl() { return _mm_getcsr(); }
void SetControl(unsigned control) { _mm_setcsr(control); }
// MXCSR: exceptions masked, the rounding in bits 13-14, flush-to-zero and
// denormals-are-zero together and each alone.
const unsigned kDefault = 0x1F80u, kRoundingShift = 13, kFlush = 0x8040u;
const char* const kRounding[] = {"nearest", "down", "up", "toward zero"};
const Env kOthers[] = {{"FTZ", kDefault | 0x8000u, Set::kControl},
                       {"DAZ", kDefault | 0x0040u, Set::kControl},
                       {"x87 single precision", kDefault, Set::kX87}};
#else
const unsigned kFlagBits = 0;  // FPCR holds none: they are in FPSR
unsigned GetControl()
{
    std::uint64_t fpcr;
    __asm__ volatile("mrs %0, fpcr" : "=r"(fpcr));
    return static_cast<unsigned>(fpcr);
}
void SetControl(unsigned control)
{
    const std::uint64_t fpcr = control;
    __asm__ volatile("msr fpcr, %0" : : "r"(fpcr));
}
// FPCR: the rounding in bits 22-23, flush-to-zero (inputs and results) in
// bit 24, the default NaN for every NaN result in bit 25.
const unsigned kDefault = 0, kRoundingShift = 22, kFlush = 1u << 24;
const char* const kRounding[] = {"nearest", "up", "down", "toward zero"};
const Env kOthers[] = {{"default NaN", 1u << 25, Set::kControl}, {"FZ, default NaN", 3u << 24, Set::kControl}};
#endif

std::vector<Env> Environments()
{
    std::vector<Env> envs(std::begin(kOthers), std::end(kOthers));
    for (unsigned flush = 0; flush < 2; ++flush) {
        for (unsigned r = flush ? 0 : 1; r < 4; ++r)  // not the default
            envs.push_back({std::string(kRounding[r]) + (flush ? ", flushing" : ""),
                            kDefault | r << kRoundingShift | (flush ? kFlush : 0u), Set::kControl});
    }
    return envs;
}

// Sets an environment for its life and restores the one before, flags
// cleared so that none is pending when traps are unmasked.
class EnvScope {
public:
    explicit EnvScope(const Env& env)
    {
        fegetenv(&m_saved);
        feclearexcept(FE_ALL_EXCEPT);
        if (env.set == Set::kTraps)
            feenableexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW);
        else
            SetControl(env.control);
#if VEXA_FPENV_X86
        __asm__ volatile("fnstcw %0" : "=m"(m_x87));
        const std::uint16_t single = static_cast<std::uint16_t>((m_x87 & ~0x0300u) | 0x0C00u);
        if (env.set == Set::kX87)
            __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(single));
#endif
    }
    ~EnvScope()
    {
#if VEXA_FPENV_X86
        __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(m_x87));
#endif
        feclearexcept(FE_ALL_EXCEPT);
        fesetenv(&m_saved);
    }

private:
    fenv_t m_saved;
    std::uint16_t m_x87 = 0;
};

// The calculators of one case: the tree alone, and one whose Evaluate runs
// machine code or the interpreter.
struct Calcs {
    Calc tree;
    Calc interpreted;
    Calc machine;
    std::unique_ptr<vexa::CompiledExpression> form;
};

Calc Derived(const Case& c)
{
    Calc calc = form_test::Parse(c.text);
    if (calc && c.derivative >= 0)
        calc = Calc(calc->getDerivativeCalculator(c.derivative));
    return calc;
}

const std::vector<double> kWarmUp = {0.25, 0.5, 0.75};

// Evaluated often enough for the machine code to exist, then made and warmed
// up again in the default environment: what a path computes once (the
// constants it folds, its machine code) must follow the default environment
// whatever the host had set at that moment.
Calcs Make(const Case& c, const Env* under = nullptr)
{
    Calcs m{form_test::TreeOnly(Derived(c).get()), Derived(c), Derived(c), nullptr};
    for (int round = under ? 0 : 1; round < 2; ++round) {
        std::unique_ptr<EnvScope> scope(round == 0 ? new EnvScope(*under) : nullptr);
        Reference(m.interpreted.get(), kWarmUp);
        for (int i = 0; i <= 200; ++i)
            Reference(m.machine.get(), kWarmUp);
        if (!m.form)
            m.form = vexa::CompiledExpression::Make(m.tree.get(), 3);
    }
    return m;
}

// The path running, for the report of a trap.
const char* volatile g_stage = "";

// The partials at each point in the default environment, and in [3] 1 where
// the gradient succeeds there.
using Gradients = std::vector<std::vector<double>>;

Gradients DefaultGradients(Calcs& m, const std::vector<std::vector<double>>& points)
{
    vexa::Workspace ws(*m.form);
    Gradients all;
    for (const auto& p : points) {
        std::vector<double> g(4);
        g[3] = m.form->Gradient(p.data(), g.data(), ws).ok() ? 1.0 : 0.0;
        all.push_back(g);
    }
    return all;
}

// Every path at every point against the tree, in the environment that is
// set; the partials against those of the default environment (dg, by
// point). Returns a description of the first difference, or "".
std::string Compare(const Case& c, Calcs& m, const std::vector<std::vector<double>>& points, const Gradients& dg)
{
    const std::size_t n = points.size();
    g_stage = "tree";
    std::vector<vexa::Outcome> tree;
    for (const auto& p : points)
        tree.push_back(Reference(m.tree.get(), p));
    vexa::Workspace ws(*m.form);
    // The points one after the other, n of them, then again up to enough for
    // three threads of the library's own, which inherit the host's environment.
    const std::size_t repeated = 200;
    std::vector<double> xyz;
    for (std::size_t i = 0; i < repeated; ++i)
        xyz.insert(xyz.end(), points[i % n].begin(), points[i % n].end());
    const vexa::Column cols[3] = {{xyz.data(), 3}, {xyz.data() + 1, 3}, {xyz.data() + 2, 3}};
    std::vector<double> bulk(n), threaded(repeated);
    g_stage = "bulk";
    m.form->EvaluateMany(n, cols, bulk.data());
    vexa::Options three;
    three.threads = 3;
    g_stage = "bulk in threads";
    m.form->EvaluateMany(repeated, cols, threaded.data(), three);
    std::vector<double> manyValues(n), manyGrads(3 * n);
    g_stage = "gradients in bulk";
    m.form->GradientMany(n, cols, manyValues.data(), manyGrads.data());
    for (std::size_t i = 0; i < n; ++i) {
        const std::vector<double>& p = points[i];
        const vexa::Outcome& t = tree[i];
        char where[96];
        std::snprintf(where, sizeof where, " at (%g, %g, %g)", p[0], p[1], p[2]);
        const std::string what = c.text + (c.derivative >= 0 ? " (derivative)" : "") + where;
        g_stage = "interpreter";
        const vexa::Outcome interpreted = Reference(m.interpreted.get(), p);
        g_stage = "machine code";
        const vexa::Outcome machine = Reference(m.machine.get(), p);
        g_stage = "one point";
        const vexa::Outcome one = m.form->Evaluate(p.data(), ws);
        g_stage = "gradient";
        double grad[3];
        const vexa::Outcome g = m.form->Gradient(p.data(), grad, ws);
        g_stage = "compare";
        const std::pair<const char*, vexa::Outcome> paths[] = {
            {"interpreter", interpreted}, {"machine code", machine}, {"one point", one}};
        for (const auto& [path, o] : paths) {
            if (!Same(o, t))
                return what + ": " + path + " " + Show(o) + ", tree " + Show(t);
        }
        if (Bits(bulk[i]) != Bits(t.value) && !(std::isnan(bulk[i]) && std::isnan(t.value)))
            return what + ": bulk " + std::to_string(bulk[i]) + ", tree " + Show(t);
        if (g.ok() != (dg[i][3] == 1.0 && t.ok()))
            return what + ": gradient " + Show(g) + ", tree " + Show(t);
        for (std::size_t j = i; j < repeated; j += n) {
            if (Bits(threaded[j]) != Bits(bulk[i]))
                return what + ": bulk in threads " + std::to_string(threaded[j]) + ", in one " +
                       std::to_string(bulk[i]);
        }
        if (Bits(manyValues[i]) != Bits(g.value) ||
            std::memcmp(&manyGrads[3 * i], grad, sizeof grad) != 0)
            return what + ": the gradient in bulk differs from the gradient at one point";
        if (g.ok() && Bits(g.value) != Bits(t.value))
            return what + ": gradient value " + Show(g) + ", tree " + Show(t);
        for (std::size_t k = 0; k < 3; ++k) {
            if (g.ok() ? Bits(grad[k]) != Bits(dg[i][k]) : !std::isnan(grad[k]))
                return what + ": partial " + std::to_string(k) + " " + std::to_string(grad[k]) +
                       (g.ok() ? ", default environment " + std::to_string(dg[i][k]) : " of a failed gradient");
        }
    }
    return "";
}

TEST(CompiledFloatEnvironment, EveryPathGivesTheTreesBitsInEveryEnvironment)
{
    ASSERT_GT(kCases.size(), 30u);
    for (const Case& c : kCases) {
        Calcs m = Make(c);
        ASSERT_TRUE(m.tree && m.interpreted && m.machine && m.form) << c.text;
        ASSERT_TRUE(ExpressionAccess::RunsCompiled(*static_cast<Expression*>(m.machine.get()))) << c.text;
        const auto gradients = DefaultGradients(m, kPoints);
        for (const Env& env : Environments()) {
            std::string diff;
            unsigned after;
            {
                EnvScope scope(env);
                diff = Compare(c, m, kPoints, gradients);
                after = GetControl();
            }
            EXPECT_EQ(diff, "") << env.name;
            // The host's environment is the host's again.
            EXPECT_EQ(after & ~kFlagBits, env.control) << env.name;
        }
        // Back in the default environment nothing has changed.
        EXPECT_EQ(Compare(c, m, kPoints, gradients), "") << "default, afterwards";
    }
}

TEST(CompiledFloatEnvironment, MadeUnderAnotherEnvironmentRunsAsMadeInTheDefault)
{
    for (const Env& env : Environments()) {
        for (const Case& c : kCases) {
            Calcs m = Make(c, &env);
            ASSERT_TRUE(m.form) << c.text;
            // Gradients in a fresh form made in the default environment.
            Calcs fresh = Make(c);
            EXPECT_EQ(Compare(c, m, kPoints, DefaultGradients(fresh, kPoints)), "") << "made under " << env.name;
        }
    }
}

// Unmasked traps: each case runs in a child process at each point, so that
// a trap is reported with the path that raised it instead of ending the
// test runner. A point where the tree itself traps is not the compiled
// paths' to answer for; it is skipped.
const int kTreeTraps = 4;

void OnTrap(int)
{
    const char* s = g_stage;
    if (std::strcmp(s, "tree") == 0)
        _exit(kTreeTraps);
    if (write(2, "SIGFPE in ", 10) < 0 || write(2, s, std::strlen(s)) < 0) {
    }
    _exit(3);
}

// Compare in a child process under unmasked traps: its exit status (0 for
// the same bits, kTreeTraps, or else a fault), and what it said in said.
int CompareInChild(const Case& c, Calcs& m, const std::vector<std::vector<double>>& points, const Gradients& dg,
                   std::string& said)
{
    std::fflush(nullptr);
    int fds[2];
    if (pipe(fds) != 0)
        return -1;
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        close(fds[0]);
        dup2(fds[1], 2);
        std::signal(SIGFPE, OnTrap);
        std::string diff;
        {
            EnvScope scope({"traps unmasked", 0, Set::kTraps});
            diff = Compare(c, m, points, dg);
        }
        if (write(2, diff.data(), diff.size()) < 0) {
        }
        _exit(diff.empty() ? 0 : 1);
    }
    close(fds[1]);
    char buf[256];
    ssize_t got;
    while ((got = read(fds[0], buf, sizeof buf)) > 0)
        said.append(buf, static_cast<std::size_t>(got));
    close(fds[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

// Point by point first, which tells the points where the tree itself traps;
// then all the others at once, so that the bulk runner has lanes to mask.
TEST(CompiledFloatEnvironment, UnmaskedTrapsRaiseNothingTheTreeDoesNot)
{
    // AArch64 processors may not trap at all (qemu-user does not): FPCR
    // then keeps no enable bit.
    fenv_t saved;
    fegetenv(&saved);
    const bool traps = feenableexcept(FE_DIVBYZERO) != -1 && (fegetexcept() & FE_DIVBYZERO) != 0;
    fesetenv(&saved);
    if (!traps)
        GTEST_SKIP() << "this processor does not trap floating-point exceptions";
    std::size_t compared = 0;
    for (const Case& c : kCases) {
        Calcs m = Make(c);
        ASSERT_TRUE(m.form) << c.text;
        const Gradients gradients = DefaultGradients(m, kPoints);
        const std::string what = c.text + (c.derivative >= 0 ? " (derivative)" : "");
        std::vector<std::vector<double>> points;
        Gradients dg;
        for (std::size_t i = 0; i < kPoints.size(); ++i) {
            std::string said;
            const int status = CompareInChild(c, m, {kPoints[i]}, {gradients[i]}, said);
            if (status == kTreeTraps)
                continue;
            points.push_back(kPoints[i]);
            dg.push_back(gradients[i]);
            EXPECT_EQ(status, 0) << what << " at point " << i << ": " << said;
        }
        std::string said;
        EXPECT_EQ(CompareInChild(c, m, points, dg, said), 0) << what << " at every point at once: " << said;
        compared += points.size();
    }
    // The tree traps at few of the points.
    EXPECT_GT(compared, kCases.size() * kPoints.size() * 3 / 4);
}

}  // namespace

#endif
