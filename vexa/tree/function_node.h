#ifndef VEXA_TREE_FUNCTION_NODE_H
#define VEXA_TREE_FUNCTION_NODE_H

#include "vexa/tree/inode.h"

// Inner node for a function call. Holds one counted reference to the called
// function's calculator and owns the argument array and trees.
class VEXA_API FunctionNode : public INode {
public:
    FunctionNode(ICalculator* function, INode** args, int count);
    ~FunctionNode() override;

    VEXA_Data Calculate() override;
    INode* Copy(ICalculator* owner) override;
    bool HasParam(int index) override;
    INode* getDerivative(ICalculator* owner, int index) override;
    void Print(int level) override;
    void Dump(std::vector<std::wstring>& lines, int level) override;
    INode* Simplify() override;
    int getNodeType() override;
    void getVariableParams(std::vector<VariableParam*>& out) override;

    ICalculator* m_function;
    INode** m_args;
    int m_arg_count;
};

#endif
