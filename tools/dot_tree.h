#ifndef VEXA_TOOLS_DOT_TREE_H
#define VEXA_TOOLS_DOT_TREE_H

#include <iosfwd>
#include <string>
#include <vector>

class ICalculator;

namespace vexa_cli {

// One calculator's tree, drawn as a Graphviz cluster.
struct DotGraph {
    std::string title;
    ICalculator* calc;
};

// The trees from the library's tree walk: operators, calls (marked by kind),
// parameters by name and constants at full precision.
std::string RenderDot(const std::vector<DotGraph>& graphs, const std::vector<std::wstring>& params);

// The tree as an indented outline, one node a line, each child two blanks
// deeper than its parent, written as the walk goes.
void WriteOutline(std::ostream& out, ICalculator* calc, const std::vector<std::wstring>& params);

}  // namespace vexa_cli

#endif
