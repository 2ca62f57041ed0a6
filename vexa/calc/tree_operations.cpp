#include "vexa/calc/tree_operations.h"

#include <atomic>

namespace vexa_calc {
namespace {

void NoDestroy(INode*) {}
VEXA_Data NoValue(INode*)
{
    return VEXA_Data();
}
INode* NoCopy(INode*, ICalculator*)
{
    return nullptr;
}
bool NoDerivative(INode*, ICalculator*, int, INode*& out)
{
    out = nullptr;
    return false;
}
void NoDump(INode*, std::vector<std::wstring>&) {}
void NoPrint(INode*) {}
int NoCost(INode*)
{
    return 0;
}
bool NoCompiled(Expression&, VEXA_Data&)
{
    return false;
}
void NoCompiledDestroy(CompiledRoot*) {}

constexpr TreeOperations kNothing{NoDestroy, NoValue, NoCopy, NoDerivative, NoDump, NoPrint,
                                  NoCost,    NoCompiled, NoCompiledDestroy};

}  // namespace

// Constant-initialised, so it holds a table before any code of the library
// runs, whatever order the loader initialises its files in.
std::atomic<const TreeOperations*> installedTreeOperations{&kNothing};

void InstallTreeOperations(const TreeOperations& operations)
{
    installedTreeOperations.store(&operations, std::memory_order_release);
}

}  // namespace vexa_calc
