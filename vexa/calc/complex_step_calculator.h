#ifndef VEXA_CALC_COMPLEX_STEP_CALCULATOR_H
#define VEXA_CALC_COMPLEX_STEP_CALCULATOR_H

#include "vexa/calc/icalculator.h"

namespace vexa_calc {
struct CalculatorAccess;
}

// Central-difference derivative (h = 0.001) of a borrowed calculator with
// respect to one of its parameters.
class VEXA_API ComplexStepCalculator : public ICalculator {
public:
    ComplexStepCalculator(ICalculator* calculator, int index);
    ICalculator* getDerivativeCalculator(int paramIndex) override;

protected:
    friend struct vexa_calc::CalculatorAccess;

    bool Calculate(VEXA_Data& result) override;
    ~ComplexStepCalculator() override;

    ICalculator* m_calculator;
    int m_index;
};

#endif
