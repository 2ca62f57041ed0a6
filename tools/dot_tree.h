#ifndef VEXA_TOOLS_DOT_TREE_H
#define VEXA_TOOLS_DOT_TREE_H

#include <memory>
#include <string>
#include <vector>

namespace vexa_cli {

// A node rebuilt from the library's dump lines.
struct TreeNode {
    enum Kind { Operator, Function, Variable, Constant } kind = Constant;
    std::string text;  // the dump text: "+", "STEP", "v:0", "2"
    int index = -1;    // parameter index of a variable
    std::vector<std::unique_ptr<TreeNode>> children;
};

// The dump writes a node's lines in operand order (left operand, operator,
// right operand; a call's arguments, then its name), each child one level
// (ten blanks) deeper. Rebuilds the tree; null if the lines do not form one.
std::unique_ptr<TreeNode> TreeFromDump(const std::vector<std::wstring>& lines);

// One tree as a Graphviz cluster; `params` names the variable indices.
struct DotGraph {
    std::string title;
    const TreeNode* root;
};
std::string RenderDot(const std::vector<DotGraph>& graphs, const std::vector<std::wstring>& params);

}  // namespace vexa_cli

#endif
