#ifndef VEXA_TREE_OPERATER_NODE_H
#define VEXA_TREE_OPERATER_NODE_H

#include "vexa/tree/inode.h"

// Inner node for the two-operand operators. Kinds: 0 +, 1 -, 2 *, 3 /, 4 %,
// 6 ^ (5 is unassigned).
class VEXA_API OperaterNode : public INode {
public:
    OperaterNode(int kind, INode* left, INode* right);
    ~OperaterNode() override;

    VEXA_Data Calculate() override;
    INode* Copy(ICalculator* owner) override;
    bool HasParam(int index) override;
    INode* getDerivative(ICalculator* owner, int index) override;
    void Print(int level) override;
    void Dump(std::vector<std::wstring>& lines, int level) override;
    INode* Simplify() override;
    int getNodeType() override;
    void getVariableParams(std::vector<VariableParam*>& out) override;

    int m_kind;
    INode* m_left;
    INode* m_right;
};

#endif
