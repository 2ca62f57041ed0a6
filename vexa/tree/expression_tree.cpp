#include "vexa/tree/expression_tree.h"

#include <memory>

#include "vexa/calc/callee.h"
#include "vexa/tree/inode.h"
#include "vexa/tree/node_util.h"
#include "vexa/tree/tree_cost.h"

namespace vexa_tree {

void DestroyTree(INode* root)
{
    delete root;
}

VEXA_Data CalculateTree(INode* root)
{
    return root->Calculate();
}

INode* CopyTree(INode* root, ICalculator* owner)
{
    return root->Copy(owner);
}

bool DeriveTree(INode* root, ICalculator* owner, int index, INode*& out)
{
    // Building recurses once per level of the tree, like an evaluation; a
    // tree too deep to evaluate (one a host assembled) is not differentiated.
    // A derivative tree can be several times deeper than its source, and one
    // too deep to evaluate within the stack guarantee is no answer either.
    if (TreeCost(root) > vexa_calc::kMaxCost) {
        out = nullptr;
        return false;
    }
    out = nullptr;
    std::unique_ptr<INode> built;
    try {
        DerivativeBudgetScope budget;
        built.reset(root->getDerivative(owner, index));
    } catch (const BudgetExceeded&) {
        // A derivative too large to build is an ordinary failure for the
        // host, not a hard error; every partial tree was freed on the way out.
        return false;
    }
    // Measuring may run out of memory too: the tree is held until it is
    // handed over.
    if (TreeCost(built.get()) > vexa_calc::kMaxCost)
        return false;
    out = built.release();
    return true;
}

void DumpTree(INode* root, std::vector<std::wstring>& lines)
{
    root->Dump(lines, 0);
}

void PrintTree(INode* root)
{
    root->Print(0);
}

}  // namespace vexa_tree
