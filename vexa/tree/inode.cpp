#include "vexa/tree/inode.h"

INode::~INode() {}

void INode::Print(int) {}

void INode::Dump(std::vector<std::wstring>&, int) {}

INode* INode::Simplify()
{
    return this;
}

ParamNode::~ParamNode() {}
