#ifndef VEXA_TREE_INODE_H
#define VEXA_TREE_INODE_H

#include <string>
#include <vector>

#include "vexa/core/data.h"
#include "vexa/core/export.h"

class ICalculator;
class VariableParam;

// Node of an expression tree. Every node has exactly one owner; destroying a
// node destroys its subtree. The virtual operations keep this slot order.
class VEXA_API INode {
public:
    INode() {}
    virtual ~INode();
    virtual VEXA_Data Calculate() = 0;
    virtual INode* Copy(ICalculator* owner) = 0;
    virtual bool HasParam(int index) = 0;
    virtual INode* getDerivative(ICalculator* owner, int index) = 0;
    virtual void Print(int level);
    virtual void Dump(std::vector<std::wstring>& lines, int level);
    virtual INode* Simplify();
    virtual int getNodeType() = 0;
    virtual void getVariableParams(std::vector<VariableParam*>& out) = 0;

    INode(const INode&) = delete;
    INode& operator=(const INode&) = delete;
};

// Common base of the two leaf classes.
class VEXA_API ParamNode : public INode {
public:
    ParamNode() {}
    ~ParamNode() override;
};

#endif
