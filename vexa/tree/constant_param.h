#ifndef VEXA_TREE_CONSTANT_PARAM_H
#define VEXA_TREE_CONSTANT_PARAM_H

#include "vexa/tree/inode.h"

// Leaf holding a fixed value.
class VEXA_API ConstantParam : public ParamNode {
public:
    explicit ConstantParam(const VEXA_Data& value);
    ~ConstantParam() override;

    VEXA_Data Calculate() override;
    INode* Copy(ICalculator* owner) override;
    bool HasParam(int index) override;
    INode* getDerivative(ICalculator* owner, int index) override;
    void Print(int level) override;
    void Dump(std::vector<std::wstring>& lines, int level) override;
    INode* Simplify() override;
    int getNodeType() override;
    void getVariableParams(std::vector<VariableParam*>& out) override;

    bool IsZero();
    bool IsOne();

private:
    VEXA_Data m_value;
};

#endif
