#ifndef VEXA_CALC_EXPRESSION_H
#define VEXA_CALC_EXPRESSION_H

#include <string>
#include <vector>

#include "vexa/calc/icalculator.h"

class INode;

// The calculator the parser hands out: owns the root of an expression tree.
class VEXA_API Expression : public ICalculator {
public:
    Expression();
    ICalculator* getDerivativeCalculator(int paramIndex) override;
    ~Expression() override;

    Expression* Copy();
    void SetRoot(INode* root);
    void SetName(VEXA_WString& name);
    void Dump(std::vector<std::wstring>& lines);
    void Print();

protected:
    bool Calculate(VEXA_Data& result) override;

private:
    INode* m_root;
};

#endif
