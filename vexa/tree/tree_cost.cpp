#include "vexa/tree/tree_cost.h"

#include <algorithm>
#include <typeinfo>
#include <vector>

#include "vexa/calc/callee.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/operater_node.h"

namespace vexa_tree {

using vexa_calc::CalleeCost;
using vexa_calc::kCallCost;
using vexa_calc::kMaxCost;
using vexa_calc::kNodeCost;

// Runs on every SetRoot, so over every parsed, copied and derived tree: the
// node type sorts out the leaves, one type comparison the exact inner
// classes, and only classes a host derived from them pay for a full cast.
int TreeCost(INode* root)
{
    struct Pending {
        INode* node;
        long long above;  // cost of the path from the root down to the node's parent
    };
    std::vector<Pending> todo;
    if (root)
        todo.push_back({root, 0});
    long long deepest = 0;
    while (!todo.empty() && deepest <= kMaxCost) {
        const Pending p = todo.back();
        todo.pop_back();
        INode* n = p.node;
        OperaterNode* op = nullptr;
        FunctionNode* call = nullptr;
        switch (n->getNodeType()) {
        case 0:
            op = typeid(*n) == typeid(OperaterNode) ? static_cast<OperaterNode*>(n) : dynamic_cast<OperaterNode*>(n);
            break;
        case 1:
            call = typeid(*n) == typeid(FunctionNode) ? static_cast<FunctionNode*>(n) : dynamic_cast<FunctionNode*>(n);
            break;
        default:
            break;
        }
        long long here = p.above + kNodeCost;
        if (op) {
            for (INode* child : {op->m_left, op->m_right})
                if (child)
                    todo.push_back({child, here});
        } else if (call) {
            here = p.above + kCallCost;
            // The called function runs after the arguments, below the same
            // call frame.
            if (call->m_function)
                deepest = std::max(deepest, here + CalleeCost(call->m_function));
            for (int i = 0; call->m_args && i < call->m_arg_count; ++i)
                if (call->m_args[i])
                    todo.push_back({call->m_args[i], here});
        }
        deepest = std::max(deepest, here);
    }
    return deepest > kMaxCost ? kMaxCost + 1 : static_cast<int>(deepest);
}

}  // namespace vexa_tree
