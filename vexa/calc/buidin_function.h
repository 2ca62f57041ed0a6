#ifndef VEXA_CALC_BUIDIN_FUNCTION_H
#define VEXA_CALC_BUIDIN_FUNCTION_H

#include "vexa/calc/icalculator.h"

namespace vexa_calc {
struct CalculatorAccess;
}

typedef bool (*BuildInFunctionPtr)(int count, VEXA_Data* args, VEXA_Data& result);

// Calculator wrapping one built-in implementation; made by
// FunctionFactory::CreateFunction, named after the function. Hosts reach it
// only through ICalculator, so the class itself stays inside the library.
class BuidInFunction : public ICalculator {
public:
    BuidInFunction(VEXA_WString& name, BuildInFunctionPtr function);
    ICalculator* getDerivativeCalculator(int paramIndex) override;

protected:
    bool Calculate(VEXA_Data& result) override;
    ~BuidInFunction() override;

private:
    friend struct vexa_calc::CalculatorAccess;

    BuildInFunctionPtr m_function;
};

#endif
