#ifndef VEXA_TREE_TREE_COST_H
#define VEXA_TREE_TREE_COST_H

class INode;

namespace vexa_tree {

// How deep an evaluation of the tree goes (0 for no tree), in the units of
// vexa/calc/callee.h, registered functions it calls included; past
// vexa_calc::kMaxCost the answer is kMaxCost + 1. Walks without recursion, so
// any tree is safe. Internal to the library.
int TreeCost(INode* root);

}  // namespace vexa_tree

#endif
