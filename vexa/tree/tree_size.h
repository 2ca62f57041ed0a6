#ifndef VEXA_TREE_TREE_SIZE_H
#define VEXA_TREE_TREE_SIZE_H

#include <cstdint>

#include "vexa/core/export.h"

class ICalculator;

namespace vexa {

// The size of a calculator's expression tree and of its dump. A dump line is
// indented by ten blanks per level, so a dump grows with nodes times depth:
// derivative trees of short texts can need gigabytes. Measure first.
struct TreeSize {
    std::uint64_t nodes = 0;      // nodes of the tree: the lines Expression::Dump appends
    std::uint64_t depth = 0;      // levels from the root to the deepest node; 1 for a lone leaf
    std::uint64_t dumpChars = 0;  // wide characters of those lines together, line ends not counted
};

// The size of calc's tree when calc is an Expression with a root; all zero
// otherwise. Walks the tree once without recursion and without building any
// line, so it is safe and quick for trees of any depth. Node classes a host
// derives itself are measured by dumping that node alone.
VEXA_API TreeSize MeasureTree(ICalculator* calc);

}  // namespace vexa

#endif
