// The exact gradient of vexa::CompiledExpression: against analytic partials
// of every built-in on both sides of its kinks (tests/data/gradients.txt),
// against high-order central differences on generated expressions, their
// derivatives and registered functions, and where it must give up.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "compiled_expression_util.h"
#include "test_util.h"
#include "vexa/calc/operations.h"

using namespace form_test;

namespace {

bool Near(double got, double expected, double tolerance)
{
    return std::fabs(got - expected) <= tolerance * std::max(1.0, std::fabs(expected));
}

TEST(CompiledGradient, BuiltinsMatchAnalyticPartialsOnEverySideOfTheirKinks)
{
    int cases = 0;
    std::set<std::string> covered;
    for (const testutil::CaseLine& c : testutil::ReadCases("gradients.txt")) {
        const std::string text = testutil::Narrow(c.fields[0]);
        covered.insert(text.substr(0, text.find('(')));
        const std::vector<double> args = testutil::Numbers(testutil::Narrow(c.fields[1]));
        const std::vector<double> partialsByArg = testutil::Numbers(testutil::Narrow(c.fields[2]));
        // Argument k is the parameter named by letter k; IMPACT and BISTOP
        // take braced names, which come after the host's names.
        vexa::ParseResult parsed = vexa::TryParse(std::wstring(text.begin(), text.end()).c_str(), L"a,b,c,d,e,f,g,h");
        ASSERT_TRUE(parsed.calc) << text;
        Calc calc(parsed.calc.release());
        const int count = static_cast<int>(parsed.names.size());
        std::vector<double> point(static_cast<std::size_t>(count), 0.0), expected(point.size(), 0.0);
        for (int i = 0; i < count; ++i) {
            const std::wstring& name = parsed.names[static_cast<std::size_t>(i)];
            const std::size_t k = static_cast<std::size_t>(name[name.size() == 1 ? 0 : 1] - L'a');
            const bool used = name.size() > 1 || text.find(std::string("{") + static_cast<char>(name[0])) == text.npos;
            point[static_cast<std::size_t>(i)] = k < args.size() ? args[k] : 0.0;
            expected[static_cast<std::size_t>(i)] = used && k < partialsByArg.size() ? partialsByArg[k] : 0.0;
        }
        const auto form = vexa::CompiledExpression::Make(calc.get(), count);
        ASSERT_TRUE(form && form->runsAsProgram()) << text;
        vexa::Workspace ws(*form);
        std::vector<double> grad(point.size());
        const vexa::Outcome o = form->Gradient(point.data(), grad.data(), ws);
        EXPECT_TRUE(Same(o, Reference(calc.get(), point))) << text << ": " << Show(o);
        for (std::size_t k = 0; k < point.size(); ++k)
            EXPECT_TRUE(Near(grad[k], expected[k], 1e-12)) << text << ": partial " << k << " is " << grad[k];
        ++cases;
    }
    EXPECT_GT(cases, 70);
    // A built-in added to the table of operations needs its partials here.
    for (const vexa_ops::Row& row : vexa_ops::kRows)
        EXPECT_TRUE(!*row.text || covered.count(row.text)) << row.text << " has no case in gradients.txt";
}

// d f / d x_k at point by a sixth-order central difference with step h.
double Difference(vexa::CompiledExpression& form, vexa::Workspace& ws, std::vector<double> point, int k, double h,
                  bool& ok)
{
    static const double kWeights[] = {-1.0, 9.0, -45.0, 0.0, 45.0, -9.0, 1.0};
    const double x = point[static_cast<std::size_t>(k)];
    double sum = 0.0;
    for (int j = -3; j <= 3; ++j) {
        point[static_cast<std::size_t>(k)] = x + j * h;
        const vexa::Outcome o = form.Evaluate(point.data(), ws);
        ok = ok && o.ok() && std::isfinite(o.value);
        sum += kWeights[j + 3] * o.value;
    }
    return sum / (60.0 * h);
}

TEST(CompiledGradient, GeneratedExpressionsMatchHighOrderDifferences)
{
    Register(L"BLEND", "u*v+SQRT(u)", L"u,v");
    Register(L"WAVE", "STEP(u,0,0,1,2)*SIN(3*u)+BLEND(u,u)", L"u");
    ComputingCaseGenerator g(5u, {"BLEND2", "WAVE1"}, true);
    int compared = 0;
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        const std::string text = g.Expression(g.Pick(1, 4));
        Calc parsed = Parse(text);
        if (!parsed)
            continue;
        // The derivatives run central differences (and of registered
        // functions, through their programs); differentiated exactly too.
        Calc calc(round % 3 ? parsed.release() : parsed->getDerivativeCalculator(g.Pick(0, 2)));
        const auto form = calc ? vexa::CompiledExpression::Make(calc.get(), 3) : nullptr;
        if (!form)
            continue;
        vexa::Workspace ws(*form);
        for (int trial = 0; trial < 3; ++trial) {
            std::vector<double> point = {g.Value(), g.Value(), g.Value()};
            double grad[3];
            const vexa::Outcome o = form->Gradient(point.data(), grad, ws);
            if (!o.ok() || !std::isfinite(o.value))
                continue;
            for (int k = 0; k < 3; ++k) {
                // Two steps that agree show the point is away from a kink.
                const double h = 1e-3 * std::max(1.0, std::fabs(point[static_cast<std::size_t>(k)]));
                bool ok = std::isfinite(grad[k]);
                const double coarse = Difference(*form, ws, point, k, h, ok);
                const double fine = Difference(*form, ws, point, k, h / 2, ok);
                if (!ok || !Near(coarse, fine, 1e-6))
                    continue;
                EXPECT_TRUE(Near(grad[k], fine, 1e-6))
                    << text << (round % 3 ? "" : " (derivative)") << " d/dx" << k << " at (" << point[0] << ", "
                    << point[1] << ", " << point[2] << "): " << grad[k] << " against " << fine;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 300);
}

TEST(CompiledGradient, PointsItCannotFollowAreReported)
{
    using vexa::Failure;
    double grad[1];
    const struct {
        const char* text;
        double x;
        Failure failure;
        int code;
    } cases[] = {
        {"LOG(x)+5", -1, Failure::kRefused, 0},
        {"1/x", 0, Failure::kThrown, -10001},
        {"x%x", 1, Failure::kThrown, -10001},
    };
    for (const auto& c : cases) {
        Calc calc = Parse(c.text, L"x");
        const auto form = vexa::CompiledExpression::Make(calc.get(), 1);
        vexa::Workspace ws(*form);
        const vexa::Outcome o = form->Gradient(&c.x, grad, ws);
        EXPECT_EQ(o.failure, c.failure) << c.text;
        EXPECT_EQ(o.code, c.code) << c.text;
        EXPECT_TRUE(std::isnan(o.value) && std::isnan(grad[0])) << c.text;
    }
    // A call without arguments is null, and null + x is x: a value only the
    // tree gives, with no program to differentiate.
    Expression* e = new Expression();
    Calc hold(e);
    VEXA_WString sine(L"SIN");
    e->SetRoot(new OperaterNode(vexa::kAdd, new FunctionNode(FunctionFactory::getInstance()->CreateFunction(sine),
                                                             new INode*[0], 0),
                                new VariableParam(e, 0)));
    const auto form = vexa::CompiledExpression::Make(e, 1);
    vexa::Workspace ws(*form);
    const double x = 2.5;
    EXPECT_FALSE(form->runsAsProgram());
    EXPECT_EQ(form->Evaluate(&x, ws).value, 2.5);
    EXPECT_EQ(form->Gradient(&x, grad, ws).failure, Failure::kNoGradient);

    // Many points: values and partials side by side, failures reported.
    Calc calc = Parse("x*x*y", L"x,y");
    const auto many = vexa::CompiledExpression::Make(calc.get());
    const double xs[] = {1, 2, 3}, y = 0.5;
    const vexa::Column columns[] = {vexa::Column::Values(xs), vexa::Column::Held(&y)};
    double values[3], grads[6];
    EXPECT_TRUE(many->GradientMany(3, columns, values, grads).ok());
    EXPECT_EQ(values[2], 4.5);
    EXPECT_EQ(grads[4], 3.0);
    EXPECT_EQ(grads[5], 9.0);
}

}  // namespace
