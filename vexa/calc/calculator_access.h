#ifndef VEXA_CALC_CALCULATOR_ACCESS_H
#define VEXA_CALC_CALCULATOR_ACCESS_H

#include "vexa/calc/buidin_function.h"
#include "vexa/calc/complex_step_calculator.h"

// The library's own view into the calculators it makes, for the compiled
// evaluation: which implementation a built-in calculator wraps, and what a
// step calculator differentiates. Internal.
namespace vexa_calc {

struct CalculatorAccess {
    static BuildInFunctionPtr Function(const BuidInFunction& f) { return f.m_function; }
    static ICalculator* Inner(const ComplexStepCalculator& c) { return c.m_calculator; }
    static int Index(const ComplexStepCalculator& c) { return c.m_index; }
};

}  // namespace vexa_calc

#endif
