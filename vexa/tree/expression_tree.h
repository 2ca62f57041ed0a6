#ifndef VEXA_TREE_EXPRESSION_TREE_H
#define VEXA_TREE_EXPRESSION_TREE_H

#include <string>
#include <vector>

#include "vexa/core/data.h"

class ICalculator;
class INode;

// What an Expression does with the tree it owns, done by the nodes; the
// library hands these to vexa/calc through its table of tree operations
// (vexa/calc/tree_operations.h says what each one answers). Internal to the
// library.
namespace vexa_tree {

void DestroyTree(INode* root);
VEXA_Data CalculateTree(INode* root);
INode* CopyTree(INode* root, ICalculator* owner);
bool DeriveTree(INode* root, ICalculator* owner, int index, INode*& out);
void DumpTree(INode* root, std::vector<std::wstring>& lines);
void PrintTree(INode* root);

}  // namespace vexa_tree

#endif
