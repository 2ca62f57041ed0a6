#ifndef VEXA_COMPILED_EXACT_EXACT_DERIVATIVE_H
#define VEXA_COMPILED_EXACT_EXACT_DERIVATIVE_H

#include <memory>
#include <string>
#include <vector>

#include "vexa/calc/expression.h"
#include "vexa/core/export.h"

namespace vexa {

class CompiledExpression;
class Workspace;

// A calculator of the exact partial derivative of calc with respect to its
// parameter index, for hosts that hold derivatives as calculators:
//
//   std::string why;
//   ICalculator* dfdx = vexa::ExactDerivative(calc, 0, &why);   // null: why says
//   dfdx->Evaluate(2, params, result);                            // d calc / d x
//   ICalculator* d2 = dfdx->getDerivativeCalculator(1);           // d2 calc / dx dy
//
// It takes the same parameters, in the same order, as calc. Its value is
// the partial through every argument of every function, registered
// functions and derivative calculators inside calc included, with the
// branches CompiledExpression::Gradient documents at kinks; first partials
// come from the gradient (machine code where the processor has it), higher
// ones from forward-mode differentiation over dual numbers, nested once per
// order. Its getDerivativeCalculator is exact too, up to order 4 (null
// beyond); no order grows with the number of paths through calc, so nested
// MAX and MIN cost what their evaluation costs, times a constant.
//
// Unlike getDerivativeCalculator, which builds a derivative tree and falls
// back on central differences where a function has no symbolic rule, this
// one never differences. Use getDerivativeCalculator where the library's
// own derivative tree is wanted (its text, its dump).
//
// Null, with the reason in *why, for an index below 0 or not below the
// number of parameters (the parameters calc reads, or the values it holds
// if more), and for a calculator that cannot be compiled (not an
// Expression, or one whose copy would not be faithful: see
// CompiledExpression::Make). The caller owns one reference (Release).
//
// Parameters and values may be vectors and matrices at the first order: with
// f the value and p the parameter at the point, the partial has f's shape
// where p is a number (k*V by k is V), p's shape where f is a number, and
// where both are rows 1 x n and 1 x m, the n x m Jacobian, row i the element
// i of f, column j the element j of p (R%F by R is the matrix of the cross
// product with F). Any other pair of shapes (M*M+M by M), a shaped value at
// a higher order, and an expression whose shapes only its tree can follow
// (a registered function called with a vector) give null.
//
// Evaluate gives false (a null value) where calc has no value there, where
// a built-in refuses its arguments on the way (strict, as the gradient), for
// the shapes above, and where the expression runs only as a tree at that
// point; it throws what calc's program would throw there (-10001 for a
// division by zero). The calculator reads only its private
// compiled copy of calc, never calc itself. It is an Expression without a
// tree, so a host can register it as a function; like any calculator, one
// thread at a time evaluates it.
VEXA_API ICalculator* ExactDerivative(ICalculator* calc, int index, std::string* why = nullptr);

class VEXA_API ExactDerivativeCalculator : public Expression {
public:
    ~ExactDerivativeCalculator() override;
    // The partial by one more parameter; null for an index out of range or
    // past the highest order.
    ICalculator* getDerivativeCalculator(int paramIndex) override;
    // Another calculator of the same partial (sharing the compiled copy,
    // which no one changes); the caller owns one reference.
    ExactDerivativeCalculator* Copy();
    // How many parameters the partial is taken by, and which.
    int order() const { return static_cast<int>(m_at.size()); }
    const std::vector<int>& indices() const { return m_at; }

    struct Shared;

protected:
    bool Calculate(VEXA_Data& result) override;

private:
    // The maker ExactDerivative calls (a friend function would lose its
    // export attribute on Windows).
    friend struct ExactDerivativeMaker;
    ExactDerivativeCalculator(std::shared_ptr<const Shared> shared, std::vector<int> at);

    std::shared_ptr<const Shared> m_shared;
    std::vector<int> m_at;
    // The first partial where a value or a parameter is a vector or a matrix.
    bool CalculateShaped(VEXA_Data& result);
    // The partial at m_point, all numbers.
    bool CalculateAtPoint(VEXA_Data& result);
    // Evaluate in one step where every value is a number and the held
    // parameters are numbers already (ICalculator's fast path).
    static bool FastEvaluate(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result);

    std::unique_ptr<Workspace> m_workspace;  // made on first evaluation
    std::vector<double> m_point;
    struct ShapedCache;
    std::unique_ptr<ShapedCache> m_shaped;  // the program of the last shapes seen
};

}  // namespace vexa

#endif
