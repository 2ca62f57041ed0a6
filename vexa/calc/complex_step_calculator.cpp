#include "vexa/calc/complex_step_calculator.h"

#include <string>

#include "vexa/calc/callee.h"

ComplexStepCalculator::ComplexStepCalculator(ICalculator* calculator, int index)
    : m_calculator(calculator), m_index(index)
{
    if (!calculator)
        return;
    // The conversion hands out the library's shared string, which the next
    // conversion overwrites: copy it before appending.
    std::wstring inner = static_cast<std::wstring&>(calculator->getName());
    m_name = VEXA_WString(L"wrap:");
    m_name += inner.c_str();
}

ComplexStepCalculator::~ComplexStepCalculator() {}

ICalculator* ComplexStepCalculator::getDerivativeCalculator(int paramIndex)
{
    return new ComplexStepCalculator(this, paramIndex);
}

bool ComplexStepCalculator::Calculate(VEXA_Data& result)
{
    const VEXA_Data h(0.001);
    const int count = getParamCount();
    if (!m_calculator || count == 0 || m_index < 0 || m_index >= count)
        return false;

    VEXA_Data x0 = getParam(m_index);
    // The sums are formed before they are stored, so a non-scalar parameter
    // fails with the held value unchanged.
    VEXA_Data shifted = x0 + h;
    getParam(m_index) = shifted;
    VEXA_Data f1;
    vexa_calc::CallFunction(m_calculator, count, getParams(), f1);

    shifted = x0 - h;
    getParam(m_index) = shifted;
    VEXA_Data f2;
    vexa_calc::CallFunction(m_calculator, count, getParams(), f2);

    result = (f1 - f2) / (h + h);
    return true;
}
