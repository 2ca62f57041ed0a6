#ifndef VEXA_COMPILED_POST_ORDER_H
#define VEXA_COMPILED_POST_ORDER_H

#include <typeinfo>
#include <vector>

#include "vexa/tree/function_node.h"
#include "vexa/tree/inode.h"
#include "vexa/tree/operater_node.h"

// The walk both compilers make over a tree. Internal to the library.
namespace vexa_compiled {

// Visits the tree under root in the order its evaluation computes the nodes,
// with a stack of its own (derivative trees run thousands of levels deep,
// and compiling may run on a thread with a small stack): finish(node,
// operands, count, out) makes a node's value from the values of the
// children its evaluation evaluates (an operator's two; a call's arguments,
// none for a call without function or arguments). False where finish
// refuses a node or a child is missing; otherwise values holds the root's.
template <typename Value, typename Finish>
bool PostOrder(INode* root, std::vector<Value>& values, Finish finish)
{
    struct Frame {
        INode* node;
        int next;
    };
    std::vector<Frame> frames;
    frames.push_back({root, 0});
    while (!frames.empty()) {
        INode* node = frames.back().node;
        int children = 0;
        INode* const* child = nullptr;
        INode* pair[2];
        const std::type_info& type = typeid(*node);
        if (type == typeid(OperaterNode)) {
            OperaterNode* op = static_cast<OperaterNode*>(node);
            pair[0] = op->m_left;
            pair[1] = op->m_right;
            child = pair;
            children = 2;
        } else if (type == typeid(FunctionNode)) {
            FunctionNode* call = static_cast<FunctionNode*>(node);
            if (call->m_function && call->m_args && call->m_arg_count > 0) {
                child = call->m_args;
                children = call->m_arg_count;
            }
        }
        Frame& frame = frames.back();
        if (frame.next < children) {
            INode* next = child[frame.next++];
            if (!next)
                return false;
            frames.push_back({next, 0});
            continue;
        }
        Value out;
        if (!finish(node, values.data() + values.size() - children, children, out))
            return false;
        values.resize(values.size() - static_cast<std::size_t>(children));
        values.push_back(out);
        frames.pop_back();
    }
    return true;
}

}  // namespace vexa_compiled

#endif
