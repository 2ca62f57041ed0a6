// One vexa::CompiledExpression evaluated from several threads at once, each
// with its own workspace, while this thread keeps evaluating the calculators
// it was made from: the form shares nothing but read-only data, so every
// thread must get the serial results bit for bit. Points that only the tree
// can answer make each workspace copy the tree on the way.
// scripts/tsan.sh runs this file under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "compiled_expression_util.h"

using namespace form_test;

TEST(ThreadsCompiled, OneFormManyThreadsMatchSerialResults)
{
    Register(L"RAMP", "STEP(u,0,0,1,v)*SIN(3*u)+LOG(u)", L"u,v");
    Calc calc = Parse("RAMP(x,y)*COS(y)+LOG(x-0.5)+5+MAX(x,y)^2", L"x,y");
    ASSERT_TRUE(calc);
    Calc derivative(calc->getDerivativeCalculator(0));
    const int kPoints = 600;
    std::vector<double> x(kPoints), y(kPoints);
    for (int i = 0; i < kPoints; ++i) {
        x[static_cast<std::size_t>(i)] = -0.5 + 0.005 * i;
        y[static_cast<std::size_t>(i)] = 1.0 + 0.001 * i;
    }
    const vexa::Column columns[] = {vexa::Column::Values(x.data()), vexa::Column::Values(y.data())};

    for (ICalculator* c : {calc.get(), derivative.get()}) {
        const auto form = vexa::CompiledExpression::Make(c, 2);
        ASSERT_TRUE(form);
        std::vector<double> serial(kPoints), grads(2 * kPoints), values(kPoints);
        const vexa::Report expected = form->EvaluateMany(kPoints, columns, serial.data());
        form->GradientMany(kPoints, columns, values.data(), grads.data());
        ASSERT_GT(expected.failed, 0u);  // the tree was needed somewhere

        std::atomic<int> mismatches{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                vexa::Workspace ws(*form);
                for (int i = t; i < kPoints; i += 3) {
                    const double point[] = {x[static_cast<std::size_t>(i)], y[static_cast<std::size_t>(i)]};
                    const vexa::Outcome o = form->Evaluate(point, ws);
                    double grad[2];
                    form->Gradient(point, grad, ws);
                    if (Bits(o.value) != Bits(serial[static_cast<std::size_t>(i)]) ||
                        Bits(grad[1]) != Bits(grads[2 * static_cast<std::size_t>(i) + 1]))
                        ++mismatches;
                }
                // Many points, split again over threads of their own.
                std::vector<double> mine(kPoints);
                vexa::Options options;
                options.threads = 2;
                const vexa::Report r = form->EvaluateMany(kPoints, columns, mine.data(), options);
                if (r.failed != expected.failed)
                    ++mismatches;
                for (int i = 0; i < kPoints; ++i) {
                    if (Bits(mine[static_cast<std::size_t>(i)]) != Bits(serial[static_cast<std::size_t>(i)]))
                        ++mismatches;
                }
            });
        }
        // The calculators the form was made from stay this thread's to use.
        for (int i = 0; i < kPoints; ++i)
            Reference(c, {x[static_cast<std::size_t>(i)], y[static_cast<std::size_t>(i)]});
        for (std::thread& t : threads)
            t.join();
        EXPECT_EQ(mismatches.load(), 0);
    }
}
