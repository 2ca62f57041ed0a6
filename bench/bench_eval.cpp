// Evaluation costs: value arithmetic, evaluating hand-built trees, and the
// numerical derivative. Trees are built from nodes directly so these numbers
// do not depend on the parser.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

VEXA_Data Filled(int rows, int cols, double start)
{
    VEXA_Data v(rows, cols);
    for (int i = 0; i < rows * cols; ++i)
        v.getValue()[i] = start + 0.5 * i;
    return v;
}

void BM_DataScalarArith(benchmark::State& state)
{
    VEXA_Data a(1.25), b(-0.5), c(3.0);
    for (auto _ : state) {
        VEXA_Data r = (a * b + c) / c - a;
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DataScalarArith);

void BM_DataScalarPower(benchmark::State& state)
{
    VEXA_Data a(1.25), b(2.5);
    for (auto _ : state) {
        VEXA_Data r = a ^ b;
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DataScalarPower);

void BM_DataVectorArith(benchmark::State& state)
{
    VEXA_Data u = Filled(1, 3, 1.0), v = Filled(1, 3, -2.0), k(2.0);
    for (auto _ : state) {
        VEXA_Data r = (u % v) * k + u - v;
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DataVectorArith);

// Size 3 stays in the inline buffer, 4 and up go to the heap.
void BM_DataMatrixProduct(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    VEXA_Data a = Filled(n, n, 1.0), b = Filled(n, n, -1.0);
    for (auto _ : state) {
        VEXA_Data r = a * b;
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_DataMatrixProduct)->Arg(3)->Arg(4)->Arg(10);

void BM_DataCopy(benchmark::State& state)
{
    const int cols = static_cast<int>(state.range(0));
    VEXA_Data src = cols == 1 ? VEXA_Data(2.0) : Filled(1, cols, 0.0);
    for (auto _ : state) {
        VEXA_Data copy(src);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_DataCopy)->Arg(1)->Arg(9)->Arg(12);

// p(x) = ((...((c0 * x + c1) * x + c2) ...) * x + cn) in Horner form, with
// 2 * degree operator nodes.
Expression* Polynomial(int degree)
{
    Expression* e = new Expression();
    INode* acc = new ConstantParam(VEXA_Data(1.0));
    for (int i = 1; i <= degree; ++i) {
        INode* times_x = new OperaterNode(2, acc, new VariableParam(e, 0));
        acc = new OperaterNode(0, times_x, new ConstantParam(VEXA_Data(1.0 / (i + 1))));
    }
    e->SetRoot(acc);
    return e;
}

void BM_EvaluatePolynomial(benchmark::State& state)
{
    Expression* e = Polynomial(static_cast<int>(state.range(0)));
    VEXA_Data x[] = {VEXA_Data(0.75)};
    VEXA_Data r;
    for (auto _ : state) {
        bool ok = e->Evaluate(1, x, r);
        benchmark::DoNotOptimize(ok);
    }
    e->Release();
}
BENCHMARK(BM_EvaluatePolynomial)->Arg(0)->Arg(4)->Arg(16);

// Cost of copying the parameters in, with a tree that reads only the last.
void BM_EvaluateParameterCount(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    Expression* e = new Expression();
    e->SetRoot(new VariableParam(e, n - 1));
    std::vector<VEXA_Data> params(n, VEXA_Data(1.5));
    VEXA_Data r;
    for (auto _ : state) {
        bool ok = e->Evaluate(n, params.data(), r);
        benchmark::DoNotOptimize(ok);
    }
    e->Release();
}
BENCHMARK(BM_EvaluateParameterCount)->Arg(1)->Arg(8)->Arg(64);

void BM_EvaluateVectorTree(benchmark::State& state)
{
    // (u % v) * s + u, with u and v 1 x 3 parameters and s a scalar one.
    Expression* e = new Expression();
    INode* cross = new OperaterNode(4, new VariableParam(e, 0), new VariableParam(e, 1));
    INode* scaled = new OperaterNode(2, cross, new VariableParam(e, 2));
    e->SetRoot(new OperaterNode(0, scaled, new VariableParam(e, 0)));
    VEXA_Data params[] = {Filled(1, 3, 1.0), Filled(1, 3, -1.0), VEXA_Data(0.5)};
    VEXA_Data r;
    for (auto _ : state) {
        bool ok = e->Evaluate(3, params, r);
        benchmark::DoNotOptimize(ok);
    }
    e->Release();
}
BENCHMARK(BM_EvaluateVectorTree);

void BM_CopyPolynomial(benchmark::State& state)
{
    Expression* e = Polynomial(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Expression* c = e->Copy();
        benchmark::DoNotOptimize(c);
        c->Release();
    }
    e->Release();
}
BENCHMARK(BM_CopyPolynomial)->Arg(4)->Arg(16);

void BM_SymbolicDerivativePolynomial(benchmark::State& state)
{
    Expression* e = Polynomial(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        ICalculator* d = e->getDerivativeCalculator(0);
        benchmark::DoNotOptimize(d);
        if (d)
            d->Release();
    }
    e->Release();
}
BENCHMARK(BM_SymbolicDerivativePolynomial)->Arg(4)->Arg(16);

// Numerical derivative of a degree-8 polynomial, nested 1 to 3 times: each
// level doubles the evaluations of the innermost expression.
void BM_ComplexStep(benchmark::State& state)
{
    const int depth = static_cast<int>(state.range(0));
    Expression* e = Polynomial(8);
    std::vector<ICalculator*> chain{new ComplexStepCalculator(e, 0)};
    for (int i = 1; i < depth; ++i)
        chain.push_back(chain.back()->getDerivativeCalculator(0));
    VEXA_Data x[] = {VEXA_Data(0.75)};
    VEXA_Data r;
    for (auto _ : state) {
        bool ok = chain.back()->Evaluate(1, x, r);
        benchmark::DoNotOptimize(ok);
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        (*it)->Release();
    e->Release();
}
BENCHMARK(BM_ComplexStep)->DenseRange(1, 3);

// A registered function called with n arguments (it reads the first), past
// the switch to machine code: the calling cost per evaluation.
void BM_RegisteredCall(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    static const bool registered = [] {
        VexaParser parser;
        ICalculator* f = nullptr;
        wchar_t list[] = L"a";
        if (!parser.parse(L"a*2+1", list, &f))
            return false;
        VEXA_WString name(L"BENCHF");
        FunctionFactory::getInstance()->Register(name, f);
        f->Release();
        return true;
    }();
    std::wstring text = L"x*1+BENCHF(x";
    for (int i = 1; i < n; ++i)
        text += L",x";
    text += L")";
    VexaParser parser;
    ICalculator* calc = nullptr;
    wchar_t list[] = L"x";
    if (!registered || !parser.parse(text.c_str(), list, &calc)) {
        state.SkipWithError("does not parse");
        return;
    }
    VEXA_Data x[] = {VEXA_Data(0.75)};
    VEXA_Data r;
    for (int i = 0; i < 100; ++i)
        calc->Evaluate(1, x, r);
    for (auto _ : state) {
        bool ok = calc->Evaluate(1, x, r);
        benchmark::DoNotOptimize(ok);
    }
    calc->Release();
}
BENCHMARK(BM_RegisteredCall)->Arg(1)->Arg(2)->Arg(8)->Arg(48);

}  // namespace
