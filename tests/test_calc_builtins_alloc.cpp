// Built-ins run once per function call of every evaluation, so they must not
// touch the heap; nor may a whole evaluation of an expression of scalars.
#include <gtest/gtest.h>

#include <vector>

#include "alloc_counter.h"
#include "test_util.h"
#include "vexa/vexa.h"

namespace {

long AllocationsOfEvaluate(const wchar_t* name, std::vector<VEXA_Data> args) {
    VEXA_WString key(name);
    ICalculator* calc = FunctionFactory::getInstance()->CreateFunction(key);
    VEXA_Data result(1, 12);  // a heap-sized result is replaced, not reused
    const long n = alloc_counter::Count([&] { calc->Evaluate(static_cast<int>(args.size()), args.data(), result); });
    calc->Release();
    return n;
}

TEST(BuiltinAllocation, ComputingCallsAllocateNothingOfTheirOwn) {
#if defined(_WIN32)
    GTEST_SKIP() << "the library's DLL allocates through its own operator new, which a program cannot replace";
#endif

    const std::pair<const wchar_t*, std::vector<VEXA_Data>> calls[] = {
        {L"MOD", {7.0, 3.0}},
        {L"SWEEP", {2.0, 3.0, 1.0, 0.25, 3.0, 0.75, 1.0}},
        {L"BISTOP", {3.25, 2.0, 1.0, 3.0, 64.0, 2.0, 10.0, 0.5}},
        {L"CHEBY", std::vector<VEXA_Data>(33, VEXA_Data(0.5))},
        {L"FORSIN", std::vector<VEXA_Data>(34, VEXA_Data(0.5))},
        {L"MAG", {testutil::RowVector({3.0, 4.0, 12.0})}},
    };
    for (const auto& call : calls) {
        // A spline name refuses everything, so its Evaluate costs exactly
        // the calculator's own copy of the parameters.
        const long baseline = AllocationsOfEvaluate(L"AKISPL", call.second);
        ASSERT_GT(baseline, 0) << "the count does not see the library's allocations";
        EXPECT_EQ(AllocationsOfEvaluate(call.first, call.second), baseline) << call.second.size();
    }
}

}  // namespace

namespace {

// Steady state of an evaluation: after the first runs (which compile the
// expression, and later turn it into machine code) nothing is allocated,
// whatever the call: 33 arguments, a registered function, a derivative.
TEST(ExpressionAllocation, EvaluatingScalarsAllocatesNothing) {
#if defined(_WIN32)
    GTEST_SKIP() << "the library's DLL allocates through its own operator new, which a program cannot replace";
#endif

    VexaParser parser;
    ICalculator* twice = nullptr;
    ASSERT_TRUE(parser.parse(L"u*2+1", nullptr, &twice));
    VEXA_WString name(L"TWICEPLUSONE");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, twice));
    const wchar_t* const texts[] = {
        L"STEP(x, 0, 0, 1, 10)*SIN(2*PI*x) + y/3",
        L"POLY(x, y, 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31)",
        L"TWICEPLUSONE(x) - IMPACT({D}, {V}, 0, 1E5, 1.5, 100, 0.001)",
    };
    for (const wchar_t* text : texts) {
        ICalculator* calc = nullptr;
        ASSERT_TRUE(parser.parse(text, nullptr, &calc));
        ICalculator* derivative = calc->getDerivativeCalculator(0);
        ASSERT_NE(derivative, nullptr);
        std::vector<VEXA_Data> values(static_cast<std::size_t>(parser.getParamsNum()), VEXA_Data(-0.25));
        VEXA_Data result;
        for (ICalculator* c : {calc, derivative}) {
            auto evaluate = [&] {
                for (int i = 0; i < 100; ++i)
                    c->Evaluate(static_cast<int>(values.size()), values.data(), result);
            };
            evaluate();
            EXPECT_EQ(alloc_counter::Count(evaluate), 0) << (c == calc ? "" : "derivative of ") << text;
        }
        derivative->Release();
        calc->Release();
    }
    // UnRegister hands the registry's reference back, besides our own.
    if (FunctionFactory::getInstance()->UnRegister(name))
        twice->Release();
    twice->Release();
}

// Values of up to nine elements live inside VEXA_Data: 1 x 3 and 3 x 3
// evaluations allocate nothing either, whatever the operations.
TEST(ExpressionAllocation, EvaluatingVectorsAndMatricesAllocatesNothing) {
#if defined(_WIN32)
    GTEST_SKIP() << "the library's DLL allocates through its own operator new, which a program cannot replace";
#endif
    VEXA_Data u(1, 3), m(3, 3);
    for (int i = 0; i < 9; ++i) {
        m.getValue()[i] = i + 1.0;
        if (i < 3) u.getValue()[i] = 0.5 - i;
    }
    VexaParser parser;
    for (const wchar_t* text : {L"u%v*k+u-v", L"u*M*k-v", L"M*M+M/k", L"u+SIN(k)*(v%u)+(1-COS(k))*(v%(v%u))"}) {
        std::wstring names = L"u,v,M,k";
        ICalculator* calc = nullptr;
        ASSERT_TRUE(parser.parse(text, &names[0], &calc));
        std::vector<VEXA_Data> values;
        for (int i = 0; i < parser.getParamsNum(); ++i) {
            const wchar_t first = static_cast<const wchar_t*>(parser.getParam(i))[0];
            values.push_back(first == L'M' ? m : first == L'k' ? VEXA_Data(0.5) : u);
        }
        VEXA_Data result;
        auto evaluate = [&] {
            for (int i = 0; i < 100; ++i)
                ASSERT_TRUE(calc->Evaluate(static_cast<int>(values.size()), values.data(), result));
        };
        evaluate();
        EXPECT_EQ(alloc_counter::Count(evaluate), 0) << text;
        calc->Release();
    }
}

}  // namespace
