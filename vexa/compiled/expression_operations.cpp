#include "vexa/calc/tree_operations.h"
#include "vexa/compiled/compiled_root.h"
#include "vexa/tree/expression_tree.h"
#include "vexa/tree/tree_cost.h"

namespace {

// The one place that tells vexa/calc what an Expression's tree and compiled
// form are: the node classes and the compiled form sit above it. The table
// is a constant; installing it while the library is loaded, before a host
// can make any tree, makes it the one every Expression uses.
constexpr vexa_calc::TreeOperations kTreeOperations{
    vexa_tree::DestroyTree, vexa_tree::CalculateTree, vexa_tree::CopyTree,
    vexa_tree::DeriveTree,  vexa_tree::DumpTree,      vexa_tree::PrintTree,
    vexa_tree::TreeCost,    vexa_compiled::CalculateCompiled, vexa_compiled::DestroyCompiled};

struct Installer {
    Installer() { vexa_calc::InstallTreeOperations(kTreeOperations); }
};
const Installer installer;

}  // namespace
