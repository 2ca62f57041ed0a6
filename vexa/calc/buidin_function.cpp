#include "vexa/calc/buidin_function.h"

BuidInFunction::BuidInFunction(VEXA_WString& name, BuildInFunctionPtr function)
    : ICalculator(name), m_function(function) {}

BuidInFunction::~BuidInFunction() {}

// Built-in calls are differentiated by the function node's own rules or
// numerically; the implementation itself offers nothing.
ICalculator* BuidInFunction::getDerivativeCalculator(int) {
    return nullptr;
}

// A reserved name without implementation still yields a calculator; using it
// is a hard error rather than a silent null value.
bool BuidInFunction::Calculate(VEXA_Data& result) {
    if (m_function == nullptr) throw -1000;
    return m_function(getParamCount(), getParams(), result);
}
