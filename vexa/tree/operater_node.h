#ifndef VEXA_TREE_OPERATER_NODE_H
#define VEXA_TREE_OPERATER_NODE_H

#include "vexa/tree/inode.h"

namespace vexa {

// The operator kinds an OperaterNode holds in m_kind. 5 is unassigned, so
// the power is 6.
enum OperatorKind : int {
    kAdd = 0,
    kSub = 1,
    kMul = 2,
    kDiv = 3,
    kCross = 4,
    kPow = 6,
};

// The character an operator kind is written with; a blank for a kind outside
// the enumeration.
VEXA_API wchar_t OperatorSymbol(int kind);

}  // namespace vexa

// Inner node for the two-operand operators; m_kind is a vexa::OperatorKind.
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
