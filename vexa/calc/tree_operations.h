#ifndef VEXA_CALC_TREE_OPERATIONS_H
#define VEXA_CALC_TREE_OPERATIONS_H

#include <atomic>
#include <string>
#include <vector>

#include "vexa/core/data.h"

class Expression;
class ICalculator;
class INode;

// What an Expression asks of the tree it owns and of that tree's compiled
// form. The node classes (vexa/tree) and the compiled form (vexa/compiled)
// sit above this folder: an Expression knows its root and its compiled form
// only by name and reaches them through one table of operations, which the
// library installs as it is loaded (vexa/compiled/expression_operations.cpp).
// So this folder compiles and links without the folders above it. Internal
// to the library.
namespace vexa_calc {

// The compiled form of an Expression's tree, defined where it is made. It is
// made on the first evaluation of a tree the library built and lives until
// the tree changes.
struct CompiledRoot;

struct TreeOperations {
    void (*destroyTree)(INode* root);
    VEXA_Data (*calculateTree)(INode* root);
    INode* (*copyTree)(INode* root, ICalculator* owner);
    // The derivative tree, bound to owner, into out (null for a node that has
    // no derivative). Building stops at the derivative node budget: what was
    // built is freed and the answer is false.
    bool (*deriveTree)(INode* root, ICalculator* owner, int index, INode*& out);
    void (*dumpTree)(INode* root, std::vector<std::wstring>& lines);
    void (*printTree)(INode* root);
    // How deep an evaluation of the tree goes (0 for no tree), in the units
    // of vexa/calc/callee.h.
    int (*treeCost)(INode* root);
    // Evaluates e's tree through its compiled form into result and returns
    // true; false, with result untouched, where the tree must be evaluated
    // instead.
    bool (*calculateCompiled)(Expression& e, VEXA_Data& result);
    void (*destroyCompiled)(CompiledRoot* compiled);
};

// The installed table. Before installation (no tree can exist yet) it is one
// that builds, evaluates and frees nothing, so a stray call cannot crash.
// Read on every evaluation: one load, inline.
extern std::atomic<const TreeOperations*> installedTreeOperations;
inline const TreeOperations& Tree()
{
    return *installedTreeOperations.load(std::memory_order_acquire);
}

// Made once, while the library is loaded, before any Expression has a tree;
// operations must outlive the library's use.
void InstallTreeOperations(const TreeOperations& operations);

}  // namespace vexa_calc

#endif
