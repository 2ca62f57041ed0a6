#ifndef VEXA_CALC_EXPRESSION_TREE_H
#define VEXA_CALC_EXPRESSION_TREE_H

#include <string>
#include <vector>

#include "vexa/core/data.h"

class Expression;
class ICalculator;
class INode;

// What an Expression asks of the tree it owns. The node classes live in
// vexa/tree, above this folder, and provide these operations
// (vexa/tree/expression_tree.cpp); an Expression knows its root only by name,
// so this folder can be read without the nodes. Internal to the library.
namespace vexa_calc {

void DestroyTree(INode* root);
VEXA_Data CalculateTree(INode* root);
INode* CopyTree(INode* root, ICalculator* owner);
// The derivative tree, bound to owner, into out (null for a node that has no
// derivative). Building stops at the derivative node budget: what was built
// is freed and the answer is false.
bool DeriveTree(INode* root, ICalculator* owner, int index, INode*& out);
void DumpTree(INode* root, std::vector<std::wstring>& lines);
// How deep an evaluation of the tree goes (0 for no tree), in the units of
// vexa/calc/callee.h; walks without recursion, so any tree is safe.
int TreeCost(INode* root);
void PrintTree(INode* root);

// The compiled form of an Expression's tree, provided by vexa/compiled
// (vexa/compiled/compiled_expression.cpp). It is made on the first
// evaluation of a tree the library built and lives until the tree changes.
struct CompiledRoot;

// Evaluates e's tree through its compiled form into result and returns true;
// false, with result untouched, where the tree must be evaluated instead.
bool CalculateCompiled(Expression& e, VEXA_Data& result);
void DestroyCompiled(CompiledRoot* compiled);

}  // namespace vexa_calc

#endif
