#include <memory>
#include <vector>

#include "vexa/calc/expression_access.h"
#include "vexa/calc/expression_tree.h"
#include "vexa/compiled/compiler.h"
#include "vexa/core/data_access.h"

namespace vexa_calc {

// An Expression's program with the registers and call space it runs in. A
// tree the program cannot cover keeps a null program, so the attempt is made
// once.
struct CompiledRoot {
    std::unique_ptr<vexa_compiled::Program> program;
    std::vector<double> registers;
    vexa_compiled::CallSpace space;
};

namespace {

using vexa_core::DataAccess;

// Runs the program over the held parameters, all scalars, into result;
// false where the tree must take over.
inline bool Run(CompiledRoot& c, const VEXA_Data* held, VEXA_Data& result)
{
    const vexa_compiled::Program& program = *c.program;
    double* r = c.registers.data();
    for (const auto& load : program.paramLoads())
        r[load.second] = DataAccess::Scalar(held[load.first]);
    if (program.Run(r, c.space) != vexa_compiled::RunResult::kDone)
        return false;
    DataAccess::AssignScalar(result, r[program.resultRegister()]);
    return true;
}

// Evaluate in one step (ICalculator::FastEvaluate): the parameters are
// scalars into held scalars of the same count, which SetParams would copy
// element by element; the program then reads them. Anything else goes the
// long way. Copying before a hand-over is harmless: the long way copies the
// same values again.
int FastEvaluate(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    Expression& e = static_cast<Expression&>(self);
    CompiledRoot& c = *ExpressionAccess::Compiled(e);
    if (count != ExpressionAccess::ParamCount(e) || count < c.program->neededParams())
        return -1;
    VEXA_Data* held = ExpressionAccess::Params(e);
    for (int i = 0; i < count; ++i) {
        if (!DataAccess::IsScalar(params[i]) || !DataAccess::IsScalar(held[i]))
            return -1;
        DataAccess::SetScalar(held[i], DataAccess::Scalar(params[i]));
    }
    if (Run(c, held, result))
        return 1;
    result = CalculateTree(ExpressionAccess::Root(e));
    return result.getType() != DT_NULL ? 1 : 0;
}

// Kept out of line: it runs once per tree, and the evaluation path that
// calls it should not pay for its frame.
__attribute__((noinline)) CompiledRoot* MakeCompiled(Expression& e)
{
    std::unique_ptr<CompiledRoot> made(new CompiledRoot());
    made->program = vexa_compiled::Compile(ExpressionAccess::Root(e), &e);
    if (made->program) {
        made->registers = made->program->initialRegisters();
        made->space.args.resize(static_cast<std::size_t>(made->program->callArity()));
        ExpressionAccess::SetFastPath(e, FastEvaluate);
    }
    return made.release();
}

}  // namespace

bool CalculateCompiled(Expression& e, VEXA_Data& result)
{
    CompiledRoot*& compiled = ExpressionAccess::Compiled(e);
    if (!compiled)
        compiled = MakeCompiled(e);
    if (!compiled->program)
        return false;
    // The program reads scalars; a parameter it needs that is missing or of
    // another kind is the tree's to handle.
    const int count = ExpressionAccess::ParamCount(e);
    if (count < compiled->program->neededParams())
        return false;
    const VEXA_Data* held = ExpressionAccess::Params(e);
    for (const auto& load : compiled->program->paramLoads()) {
        if (!DataAccess::IsScalar(held[load.first]))
            return false;
    }
    return Run(*compiled, held, result);
}

void DestroyCompiled(CompiledRoot* compiled)
{
    delete compiled;
}

}  // namespace vexa_calc
