#ifndef VEXA_TREE_TREE_WALK_H
#define VEXA_TREE_TREE_WALK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "vexa/core/data.h"
#include "vexa/core/export.h"
#include "vexa/tree/operater_node.h"

class ICalculator;
class INode;

namespace vexa {

// The node classes, in their getNodeType codes; kOther for a class a host
// made itself.
enum class NodeKind { kOperator = 0, kCall = 1, kConstant = 2, kParameter = 3, kOther = 4 };

// Who answers a call: a built-in implementation, an expression a host
// registered, or the central-difference wrapper a derivative puts around a
// function without a symbolic rule (named "wrap:NAME").
enum class CallKind { kNone, kBuiltIn, kRegistered, kNumericDerivative, kOther };

// One node as the walk shows it; only the fields of its kind are set.
struct TreeNodeInfo {
    // The node itself, for hosts that evaluate a subtree (its Calculate reads
    // the parameters of the calculator's latest Evaluate). The walk changes
    // nothing.
    INode* node = nullptr;
    NodeKind kind = NodeKind::kOther;
    int depth = 0;        // 0 for the root
    int child_count = 0;  // the children follow, each with its whole subtree
    OperatorKind op = kAdd;
    wchar_t symbol = 0;   // '+', '-', '*', '/', '%', '^'; ' ' for a kind outside these
    CallKind call = CallKind::kNone;
    std::wstring function;  // the called calculator's name
    // A call that getDerivativeCalculator differentiates by a central
    // difference (step 0.001) through its first argument only, blind to how
    // the others vary; false for the functions with a symbolic rule.
    bool numeric_derivative = false;
    VEXA_Data value;        // a constant's value: every element, any shape
    int parameter = -1;
    std::wstring parameter_name;  // when the caller gave names and the index has one
};

// Visits every node once, each before its children, children in order (left
// operand before right, arguments in order). Returning false from visit ends
// the walk. Works from a heap stack, so trees thousands of levels deep (as
// repeated derivatives make them) cost no C stack. names, if given, names the
// parameters by index. False when there is no tree (a calculator that is no
// Expression, or one without a root) or visit ended the walk.
using TreeVisitor = std::function<bool(const TreeNodeInfo&)>;
VEXA_API bool WalkTree(ICalculator* calc, const TreeVisitor& visit, const std::vector<std::wstring>* names = nullptr);
VEXA_API bool WalkTree(INode* root, const TreeVisitor& visit, const std::vector<std::wstring>* names = nullptr);

// Size of a tree, so a host can decide before dumping it: the lines of
// Expression::Dump indent each node ten blanks a level, so a dump grows with
// nodes times depth and reaches gigabytes for deep derivative trees.
struct TreeMeasure {
    std::size_t nodes = 0;
    int depth = 0;  // nodes on the longest path from the root; 0 without a tree
    // Wide characters of all the lines Dump would write (one line per node),
    // line ends not counted.
    std::uint64_t dump_chars = 0;
};
VEXA_API TreeMeasure MeasureTree(ICalculator* calc);
VEXA_API TreeMeasure MeasureTree(INode* root);

}  // namespace vexa

#endif
