// vexa::CompiledSystem on generated models whose outputs share pieces: values
// bit for bit those of each output's Evaluate, Jacobians those of each
// output's own gradient, the sparsity pattern, and refused inputs.
#include <gtest/gtest.h>

#include <cfenv>
#include <set>
#include <stdexcept>

#include "compiled_expression_util.h"

using namespace form_test;

namespace {

struct Model {
    std::vector<std::string> texts;
    std::vector<Calc> calcs;
    std::vector<ICalculator*> outputs;
};

// Outputs made of a few shared pieces, so that equal subtrees recur across
// outputs; registered functions among the calls.
Model Generate(unsigned seed, bool smooth, int count)
{
    Register(L"SYSF", "a*b+SIN(a)", L"a,b");
    Register(L"SYSA", "COS(a)*3", L"a,b");  // ignores its second argument
    ComputingCaseGenerator gen(seed, {"SYSF2", "SYSA2"}, smooth);
    std::vector<std::string> pieces;
    while (pieces.size() < 5) {
        const std::string p = gen.Expression(2);
        if (p.find("DX(") == std::string::npos)
            pieces.push_back(p);
    }
    Model m;
    while (static_cast<int>(m.calcs.size()) < count) {
        std::string text = pieces[static_cast<std::size_t>(gen.Pick(0, 4))];
        for (int k = gen.Pick(0, 2); k > 0; --k)
            text = "(" + text + (gen.Pick(0, 1) ? "*" : "+") + pieces[static_cast<std::size_t>(gen.Pick(0, 4))] + ")";
        if (text.find("DX(") != std::string::npos)
            continue;
        Calc c = Parse(text);
        if (!c)
            continue;
        m.outputs.push_back(c.get());
        m.calcs.push_back(std::move(c));
        m.texts.push_back(text);
    }
    return m;
}

TEST(CompiledSystem, ValuesAreEachOutputsEvaluateBitForBit)
{
    for (unsigned seed = 1; seed <= 12; ++seed) {
        Model m = Generate(seed, false, 10);
        std::string why;
        auto sys = vexa::CompiledSystem::Make(m.outputs, 3, &why);
        ASSERT_TRUE(sys) << why;
        EXPECT_GT(sys->programOutputs(), 0);
        const std::size_t n = 150, outs = m.outputs.size();
        ComputingCaseGenerator values(seed * 7, {}, false);
        std::vector<double> points(n * 3);
        for (double& v : points)
            v = values.Value();
        const vexa::Column columns[] = {{points.data(), 3}, {points.data() + 1, 3}, {points.data() + 2, 3}};
        for (const bool strict : {false, true}) {
            vexa::Options options;
            options.strict = strict;
            options.threads = 2;
            options.max_reported = n * outs;
            std::vector<double> many(n * outs);
            const vexa::Report report = sys->EvaluateMany(n, columns, many.data(), options);
            std::set<std::size_t> failed;
            for (const vexa::PointFailure& f : report.first)
                failed.insert(f.index);
            vexa::SystemWorkspace ws(*sys);
            for (std::size_t i = 0; i < n; ++i) {
                const std::vector<double> point(&points[i * 3], &points[i * 3 + 3]);
                std::vector<double> one(outs);
                sys->Evaluate(point.data(), one.data(), ws, strict);
                for (std::size_t o = 0; o < outs; ++o) {
                    vexa::Workspace own(sys->output(static_cast<int>(o)));
                    const vexa::Outcome want = strict ? sys->output(static_cast<int>(o)).Evaluate(point.data(), own, true)
                                                      : Reference(m.outputs[o], point);
                    const vexa::Outcome got{many[i * outs + o],
                                            failed.count(i * outs + o) ? want.failure : vexa::Failure::kNone,
                                            want.code};
                    ASSERT_TRUE(Same(got, want) && Bits(one[o]) == Bits(many[i * outs + o]))
                        << m.texts[o] << " point " << i << " strict " << strict << ": " << Show(got) << " vs "
                        << Show(want);
                }
            }
        }
    }
}

TEST(CompiledSystem, ValuesFollowTheHostsRounding)
{
    Model m = Generate(3, false, 10);
    std::fesetround(FE_UPWARD);  // made and run there
    auto sys = vexa::CompiledSystem::Make(m.outputs, 3);
    if (!sys)
        std::fesetround(FE_TONEAREST);
    ASSERT_TRUE(sys);
    const std::size_t n = 70, outs = m.outputs.size();
    ComputingCaseGenerator values(5, {}, false);
    std::vector<double> points(n * 3), many(n * outs), jac(n * outs * 3);
    for (double& v : points)
        v = values.Value();
    const vexa::Column columns[] = {{points.data(), 3}, {points.data() + 1, 3}, {points.data() + 2, 3}};
    sys->EvaluateMany(n, columns, many.data());
    sys->JacobianMany(n, columns, nullptr, jac.data());
    std::vector<vexa::Outcome> want;
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t o = 0; o < outs; ++o)
            want.push_back(Reference(m.outputs[o], {points[i * 3], points[i * 3 + 1], points[i * 3 + 2]}));
    std::fesetround(FE_TONEAREST);
    for (std::size_t i = 0; i < n * outs; ++i)
        ASSERT_TRUE(want[i].ok() ? Bits(many[i]) == Bits(want[i].value) : std::isnan(many[i])) << m.texts[i % outs];
    // The partials are the default environment's, as each gradient's.
    std::vector<double> again(jac.size());
    sys->JacobianMany(n, columns, nullptr, again.data());
    for (std::size_t i = 0; i < jac.size(); ++i)
        ASSERT_TRUE(std::isnan(jac[i]) ? std::isnan(again[i])
                                       : std::fabs(jac[i] - again[i]) <= 1e-12 * std::max(1.0, std::fabs(again[i])));
}

TEST(CompiledSystem, JacobianIsEachOutputsGradientAndThePatternHoldsItsNonZeros)
{
    for (unsigned seed = 1; seed <= 12; ++seed) {
        Model m = Generate(seed, true, 8);
        auto sys = vexa::CompiledSystem::Make(m.outputs, 3);
        ASSERT_TRUE(sys);
        const std::size_t outs = m.outputs.size(), n = 20;
        std::set<std::pair<int, int> > pattern(sys->Sparsity().begin(), sys->Sparsity().end());
        for (const auto& e : pattern) {
            const char name = "xyz"[e.second];
            EXPECT_NE(m.texts[static_cast<std::size_t>(e.first)].find(name), std::string::npos) << m.texts[e.first];
        }
        ComputingCaseGenerator values(seed, {}, true);
        std::vector<double> points(n * 3), jac(n * outs * 3), vals(n * outs);
        for (double& v : points)
            v = values.Ordinary();
        const vexa::Column columns[] = {{points.data(), 3}, {points.data() + 1, 3}, {points.data() + 2, 3}};
        vexa::Options options;
        options.threads = 2;
        sys->JacobianMany(n, columns, vals.data(), jac.data(), options);
        vexa::SystemWorkspace ws(*sys);
        for (std::size_t i = 0; i < n; ++i) {
            std::vector<double> one(outs * 3);
            sys->Jacobian(&points[i * 3], nullptr, one.data(), ws);
            for (std::size_t o = 0; o < outs; ++o) {
                const vexa::CompiledExpression& own = sys->output(static_cast<int>(o));
                vexa::Workspace w(own);
                double grad[3];
                const vexa::Outcome want = own.Gradient(&points[i * 3], grad, w);
                EXPECT_TRUE(Bits(want.value) == Bits(vals[i * outs + o]) || (std::isnan(want.value)));
                for (int k = 0; k < 3; ++k) {
                    const double got = jac[(i * outs + o) * 3 + k];
                    EXPECT_EQ(Bits(got), Bits(one[o * 3 + k]));
                    const double expected = want.ok() ? grad[k] : std::nan("");
                    EXPECT_TRUE(std::isnan(got) ? std::isnan(expected)
                                                : std::fabs(got - expected) <= 1e-12 * std::max(1.0, std::fabs(expected)))
                        << m.texts[o] << " param " << k << ": " << got << " vs " << expected;
                    if (want.ok() && got != 0.0) {
                        EXPECT_TRUE(pattern.count({static_cast<int>(o), k})) << m.texts[o] << " param " << k;
                    }
                }
            }
        }
    }
}

TEST(CompiledSystem, PatternFollowsRegisteredFunctionsAndNamedParameters)
{
    Generate(1, true, 1);  // registers SYSA, whose second argument is unused
    Calc a = Parse("SYSA(y, x) + z", L"x,y,z"), b = Parse("q*x", L"q,x");
    // The second output's q and x are the system's 3 and 0.
    auto sys = vexa::CompiledSystem::Make({a.get(), b.get()}, {{0, 1, 2}, {3, 0}}, 4);
    ASSERT_TRUE(sys);
    const std::vector<std::pair<int, int> > want = {{0, 1}, {0, 2}, {1, 0}, {1, 3}};
    EXPECT_EQ(sys->Sparsity(), want);
    vexa::SystemWorkspace ws(*sys);
    const double point[] = {2.0, 0.5, 1.0, 3.0};
    double out[2], jac[8];
    EXPECT_TRUE(sys->Jacobian(point, out, jac, ws).ok());
    EXPECT_EQ(out[1], 6.0);
    EXPECT_EQ(jac[4], 3.0);
    EXPECT_EQ(jac[7], 2.0);

    // An output without a program (numbers have no cross product) goes alone.
    Calc cross = Parse("x%y + z");
    auto mixed = vexa::CompiledSystem::Make({a.get(), cross.get()});
    ASSERT_TRUE(mixed);
    EXPECT_EQ(mixed->programOutputs(), 1);
    EXPECT_EQ(mixed->paramCount(), 3);
    EXPECT_EQ(mixed->Sparsity(), (std::vector<std::pair<int, int> >{{0, 1}, {0, 2}, {1, 0}, {1, 1}, {1, 2}}));
    const vexa::Column cols[] = {vexa::Column::Held(point), vexa::Column::Held(point + 1),
                                 vexa::Column::Held(point + 2)};
    double many[6], jacs[18];
    const vexa::Report r = mixed->EvaluateMany(3, cols, many);
    EXPECT_EQ(r.by_kind[static_cast<int>(vexa::Failure::kThrown)], 3u);
    EXPECT_EQ(r.first[1].index, 3u);
    EXPECT_EQ(Bits(many[4]), Bits(Reference(a.get(), {2.0, 0.5, 1.0}).value));
    EXPECT_EQ(mixed->JacobianMany(3, cols, nullptr, jacs).failed, 3u);
    EXPECT_TRUE(std::isnan(jacs[3]) && !std::isnan(jacs[6]));
}

TEST(CompiledSystem, TextsMergeTheirNamesInOrderOfFirstAppearance)
{
    const vexa::ParsedOutputs p = vexa::ParseOutputs({L"SIN(w*TIME)", L"k*x + SIN(W*TIME)"}, L"TIME");
    ASSERT_EQ(p.failed, -1);
    EXPECT_EQ(p.names, (std::vector<std::wstring>{L"TIME", L"w", L"k", L"x"}));
    EXPECT_EQ(p.reads, (std::vector<std::vector<int> >{{0, 1}, {0, 2, 3, 1}}));
    EXPECT_EQ(vexa::ParseOutputs({L"x", L"y+"}, nullptr).failed, 1);
}

TEST(CompiledSystem, RefusesWhatCannotBeASystem)
{
    Calc x = Parse("x+y");
    std::string why;
    const std::vector<std::pair<std::vector<ICalculator*>, std::vector<std::vector<int> > > > bad = {
        {{}, {}}, {{nullptr}, {{0}}}, {{x.get()}, {{0, 0}}}, {{x.get()}, {{0, 5}}}, {{x.get(), x.get()}, {{0, 1}}}};
    for (const auto& b : bad) {
        EXPECT_FALSE(vexa::CompiledSystem::Make(b.first, b.second, 2, &why));
        EXPECT_FALSE(why.empty());
    }
    EXPECT_FALSE(vexa::CompiledSystem::Make(std::vector<ICalculator*>{nullptr}));
    auto sys = vexa::CompiledSystem::Make({x.get()}, 2);
    auto other = vexa::CompiledSystem::Make({x.get()}, 2);
    ASSERT_TRUE(sys && other);
    vexa::SystemWorkspace ws(*other);
    double v[2] = {1, 2}, out[2];
    EXPECT_THROW(sys->Evaluate(v, out, ws), std::invalid_argument);
    const vexa::Column cols[] = {vexa::Column::Values(v), vexa::Column::Values(v)};
    EXPECT_THROW(sys->EvaluateMany(static_cast<std::size_t>(-1) / 2, cols, out), std::length_error);
    EXPECT_THROW(sys->JacobianMany(static_cast<std::size_t>(-1) / 3, cols, out, out), std::length_error);
}

}  // namespace

namespace {

TEST(CSystem, NamesMergeAcrossTextsAndFailuresNameTheOutput)
{
    const char* texts[] = {"SIN(w*TIME)", "k*x + SIN(W*TIME)", "SQRT(x)"};
    vexa_error err;
    vexa_system* s = vexa_system_make(texts, 3, "TIME", &err);
    ASSERT_TRUE(s) << err.message;
    int outputs = 0, params = 0;
    EXPECT_EQ(vexa_system_size(s, &outputs, &params), VEXA_OK);
    EXPECT_EQ(outputs, 3);
    ASSERT_EQ(params, 4);
    EXPECT_STREQ(vexa_system_param(s, 1), "w");
    EXPECT_STREQ(vexa_system_param(s, 3), "x");
    EXPECT_EQ(vexa_system_param(s, 4), nullptr);
    int rows[16], cols[16];
    ASSERT_EQ(vexa_system_sparsity(s, rows, cols, 16), 7);
    EXPECT_EQ(rows[6] * 10 + cols[6], 23);
    const double point[] = {0.5, 2.0, 3.0, -1.0};
    double out[3], jac[12];
    EXPECT_EQ(vexa_system_jacobian(s, point, out, jac, &err), VEXA_E_REFUSED);
    EXPECT_EQ(err.position, 2);
    EXPECT_NE(std::string(err.message).find("output 2 (SQRT(x))"), std::string::npos) << err.message;
    EXPECT_EQ(jac[4 + 2], -1.0);
    EXPECT_TRUE(std::isnan(jac[8]));
    const double* columns[] = {point, point + 1, point + 2, point + 3};
    const ptrdiff_t strides[] = {0, 0, 0, 0};
    vexa_report report;
    double many[6];
    EXPECT_EQ(vexa_system_eval_many(s, 2, columns, strides, many, nullptr, &report, &err), VEXA_E_POINTS);
    EXPECT_EQ(report.failed, 2u);
    EXPECT_EQ(Bits(many[4]), Bits(out[1]));
    EXPECT_EQ(vexa_system_eval_many(s, static_cast<size_t>(-1), columns, strides, many, nullptr, &report, &err),
              VEXA_E_ARGUMENT);
    vexa_system_free(s);
    const char* bad[] = {"x+", "y"};
    EXPECT_FALSE(vexa_system_make(bad, 2, nullptr, &err));
    EXPECT_NE(std::string(err.message).find("output 0"), std::string::npos);
    EXPECT_FALSE(vexa_system_make(bad, 0, nullptr, &err));
    EXPECT_EQ(err.code, VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_system_size(nullptr, &outputs, &params), VEXA_E_ARGUMENT);
}

}  // namespace
