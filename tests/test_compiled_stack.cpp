// The compiled form on threads whose stacks are far smaller than the
// library's guarantee: chains of registered functions of growing depth,
// evaluated one by one, many at once and with gradients (and the form made
// there too), must give Evaluate's value or refuse with -1002, never run off
// the stack.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compiled_expression_util.h"
#include "small_stack.h"

using namespace form_test;

namespace {

constexpr int kDeepest = 60;

// CHAA(A) = A*2 + 1 and every further link calls the one before it.
std::string Link(int depth)
{
    return std::string("CH") + static_cast<char>('A' + depth / 26) + static_cast<char>('A' + depth % 26);
}

class CompiledStack : public ::testing::Test {
public:
    static void SetUpTestSuite()
    {
        for (int d = 0; d <= kDeepest; ++d) {
            const std::string name = Link(d);
            const std::string text = d == 0 ? "A*2+1" : Link(d - 1) + "(A)*1.5-A";
            Register(std::wstring(name.begin(), name.end()).c_str(), text, L"A");
        }
    }
};

// Evaluate's value on an ordinary thread, or a refusal with -1002.
void ExpectValueOrTooDeep(const vexa::Outcome& o, double expected, const std::string& what)
{
    if (o.ok()) {
        EXPECT_EQ(Bits(o.value), Bits(expected)) << what;
    } else {
        EXPECT_TRUE(o.failure == vexa::Failure::kThrown && o.code == -1002) << what << ": " << Show(o);
    }
}

struct Sizes {
    std::size_t bytes;
    // Whether the deepest chain must be refused there.
    bool refusesDeepest;
};

TEST_F(CompiledStack, ChainsRefuseCleanlyOnSmallStacks)
{
    if (!SmallStacksHonoured())
        GTEST_SKIP() << "threads here cannot have a 64 KiB stack (Wine: 1 MiB at least; AArch64 Linux: 128 KiB)";
    // Sanitizer and unoptimised frames are several times larger.
    const std::vector<Sizes> sizes = kGuaranteeBuild
                                         ? std::vector<Sizes>{{64u << 10, true}, {160u << 10, false}, {1u << 20, false}}
                                         : std::vector<Sizes>{{300u << 10, true}, {4u << 20, false}};
    for (int depth : {0, 1, 5, 20, 40, 54, kDeepest}) {
        const std::string text = "x*1+" + Link(depth) + "(x+y)";
        Calc calc = Parse(text, L"x,y");
        ASSERT_TRUE(calc) << text;
        const auto form = vexa::CompiledExpression::Make(calc.get(), 2);
        ASSERT_TRUE(form) << text;
        const std::size_t n = 70;
        std::vector<double> x(n), y(n, 0.25), expected(n);
        for (std::size_t i = 0; i < n; ++i) {
            x[i] = 0.5 * static_cast<double>(i) - 3.0;
            const vexa::Outcome o = Reference(calc.get(), {x[i], y[i]});
            ASSERT_TRUE(o.ok()) << text;
            expected[i] = o.value;
        }
        const vexa::Column columns[] = {vexa::Column::Values(x.data()), vexa::Column::Values(y.data())};
        vexa::Options options;
        options.threads = 1;
        options.max_reported = n;
        for (const Sizes& size : sizes) {
            const std::string where = text + " on " + std::to_string(size.bytes >> 10) + " KiB";
            std::vector<vexa::Outcome> one(n), many(n), gradients(n), freeMany(n);
            std::vector<double> results(n), values(n), grads(2 * n), freeResults(n);
            vexa::Report report, gradReport, freeReport;
            bool madeThere = false;
            RunOnSmallStack(
                [&] {
                    for (std::size_t i = 0; i < n; ++i)
                        one[i] = Reference(calc.get(), {x[i], y[i]});
                    report = form->EvaluateMany(n, columns, results.data(), options);
                    gradReport = form->GradientMany(n, columns, values.data(), grads.data(), options);
                    vexa::Workspace ws(*form);
                    for (std::size_t i = 0; i < n; i += 9) {
                        const double point[2] = {x[i], y[i]};
                        double grad[2];
                        gradients[i] = form->Gradient(point, grad, ws);
                        many[i] = form->Evaluate(point, ws);
                    }
                    madeThere = vexa::CompiledExpression::Make(calc.get(), 2) != nullptr;
                    freeReport = vexa::EvaluateMany(calc.get(), 2, n, columns, freeResults.data(), options);
                },
                size.bytes);
            std::vector<vexa::Outcome> bulk(n, vexa::Outcome{0, vexa::Failure::kNone, 0});
            for (const vexa::PointFailure& p : report.first)
                bulk[p.index] = {0, p.failure, p.code};
            for (std::size_t i = 0; i < n; ++i) {
                ExpectValueOrTooDeep(one[i], expected[i], "Evaluate " + where);
                bulk[i].value = results[i];
                ExpectValueOrTooDeep(bulk[i], expected[i], "EvaluateMany " + where);
                if (i % 9 == 0) {
                    ExpectValueOrTooDeep(many[i], expected[i], "Evaluate of the form " + where);
                    ExpectValueOrTooDeep(gradients[i], expected[i], "Gradient " + where);
                }
            }
            for (const vexa::Report* r : {&gradReport, &freeReport})
                for (const vexa::PointFailure& p : r->first)
                    EXPECT_TRUE(p.failure == vexa::Failure::kThrown && p.code == -1002) << where;
            if (depth == kDeepest && size.refusesDeepest) {
                EXPECT_EQ(report.failed, n) << where;
                EXPECT_EQ(gradReport.failed, n) << where;
            }
            if (depth == 0 && !size.refusesDeepest) {
                EXPECT_TRUE(madeThere) << where;
            }
        }
    }
}

}  // namespace
