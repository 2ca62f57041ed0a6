#ifndef VEXA_TREE_OWNING_STEP_CALCULATOR_H
#define VEXA_TREE_OWNING_STEP_CALCULATOR_H

#include "vexa/calc/complex_step_calculator.h"

namespace vexa_tree {

// The numeric derivative rule's wrapper. A derivative expression must stay
// usable after the host releases the expression it was made from, which may
// hold the last reference to the differentiated function; so this wrapper
// keeps its own. A ComplexStepCalculator that a host builds directly still
// only borrows. Internal to the library.
class OwningStepCalculator : public ComplexStepCalculator {
public:
    explicit OwningStepCalculator(ICalculator* function, int index = 0) : ComplexStepCalculator(function, index)
    {
        if (m_calculator)
            m_calculator->AddRef();
    }

protected:
    ~OwningStepCalculator() override
    {
        if (m_calculator)
            m_calculator->Release();
    }
};

}  // namespace vexa_tree

#endif
