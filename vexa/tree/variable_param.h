#ifndef VEXA_TREE_VARIABLE_PARAM_H
#define VEXA_TREE_VARIABLE_PARAM_H

#include "vexa/tree/inode.h"

// Leaf standing for parameter m_index of the calculator it is bound to. The
// calculator owns the tree, so the leaf holds a plain, uncounted pointer.
class VEXA_API VariableParam : public ParamNode {
public:
    VariableParam(ICalculator* owner, int index);
    ~VariableParam() override;

    VEXA_Data Calculate() override;
    INode* Copy(ICalculator* owner) override;
    bool HasParam(int index) override;
    INode* getDerivative(ICalculator* owner, int index) override;
    void Print(int level) override;
    void Dump(std::vector<std::wstring>& lines, int level) override;
    INode* Simplify() override;
    int getNodeType() override;
    void getVariableParams(std::vector<VariableParam*>& out) override;

    ICalculator* m_calculator;
    int m_index;
};

#endif
