#ifndef VEXA_TREE_NODE_BUILD_H
#define VEXA_TREE_NODE_BUILD_H

#include <memory>
#include <utility>

#include "vexa/calc/calc_ref.h"
#include "vexa/tree/inode.h"

// Internal helpers for the copy and derivative rules of the inner nodes.
//
// A rule builds its result bottom-up, and any step may throw: the derivative
// budget, an int from a nested rule, or the allocator. Every partial subtree
// is therefore held by a unique_ptr until a parent node takes it over, so an
// exception at any point frees everything built so far.
namespace vexa_tree {

using NodePtr = std::unique_ptr<INode>;

// An argument array under construction: owns the array and every entry
// filled so far until it is handed to a node.
class ArgArray {
public:
    explicit ArgArray(int count);
    ~ArgArray();
    ArgArray(const ArgArray&) = delete;
    ArgArray& operator=(const ArgArray&) = delete;

    int count() const { return m_count; }
    void set(int i, NodePtr node) { m_args[i] = node.release(); }
    INode** release()
    {
        INode** a = m_args;
        m_args = nullptr;
        m_count = 0;
        return a;
    }

private:
    INode** m_args;
    int m_count;
};

// K(c): a new scalar constant.
NodePtr K(double c);

// Op(kind, a, b): a new operator node that takes over both operands.
NodePtr Op(int kind, NodePtr left, NodePtr right);

// A copy of node bound to owner; a missing node stays missing.
NodePtr CopyOf(INode* node, ICalculator* owner);

// The derivative of node; a missing node counts as a constant.
NodePtr DerivOf(INode* node, ICalculator* owner, int index);

// A new function node over fn and args; takes both over only on success.
// The caller has charged the node already.
NodePtr MakeCall(vexa::CalcRef& fn, ArgArray& args);

// NAME(args...): a call of the built-in NAME with a fresh calculator from the
// registry.
NodePtr CallWith(const wchar_t* name, NodePtr* args, int count);

template <class... Args>
NodePtr Call(const wchar_t* name, Args&&... args)
{
    NodePtr parts[] = {std::forward<Args>(args)...};
    return CallWith(name, parts, static_cast<int>(sizeof...(Args)));
}

// Whether node is exactly a ConstantParam (a subclass does not count).
bool IsConstant(INode* node);

}  // namespace vexa_tree

#endif
