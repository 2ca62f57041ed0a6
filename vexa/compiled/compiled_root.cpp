#include "vexa/compiled/compiled_root.h"

#include <memory>
#include <new>
#include <vector>

#include "vexa/calc/expression_access.h"
#include "vexa/compiled/program/compiler.h"
#include "vexa/compiled/program/shaped_program.h"
#include "vexa/compiled/machine_code.h"
#include "vexa/core/data_access.h"
#include "vexa/core/inline_hints.h"
#include "vexa/core/platform.h"
#include "vexa/tree/expression_tree.h"

namespace vexa_calc {

// An Expression's program with the registers and call space it runs in. A
// tree the program cannot cover keeps a null program, so the attempt is made
// once.
struct CompiledRoot {
    std::unique_ptr<vexa_compiled::Program> program;
    std::vector<double> registers;
    vexa_compiled::CallSpace space;
    // Machine code for the program, made once the expression has been
    // evaluated often enough to repay it (see RunsBeforeMachineCode).
    std::unique_ptr<vexa_compiled::MachineCode> machine;
    int runs = 0;
    // The program for evaluations with rows and matrices among the held
    // parameters, or for a tree the scalar program does not cover.
    vexa_compiled::ShapedCache shaped;
};

}  // namespace vexa_calc

namespace vexa_compiled {
namespace {

using vexa_calc::CompiledRoot;
using vexa_calc::ExpressionAccess;
using vexa_core::DataAccess;

// Runs the program over the held parameters, all scalars, into result;
// false where the tree must take over.
inline bool Run(CompiledRoot& c, const VEXA_Data* held, VEXA_Data& result)
{
    const Program& program = *c.program;
    double* r = c.registers.data();
    for (const auto& load : program.paramLoads())
        r[load.second] = DataAccess::Scalar(held[load.first]);
    if (program.Run(r, c.space) != RunResult::kDone)
        return false;
    DataAccess::AssignScalar(result, r[program.resultRegister()]);
    return true;
}

bool TreeExit(ICalculator& self, int, VEXA_Data*, VEXA_Data& result)
{
    result = vexa_tree::CalculateTree(ExpressionAccess::Root(static_cast<Expression&>(self)));
    return result.getType() != DT_NULL;
}

// Rows and matrices of the shapes the shaped program was made for go to it
// directly; anything else the long way.
bool LongExit(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    Expression& e = static_cast<Expression&>(self);
    switch (vexa_compiled::EvaluateShapedInPlace(ExpressionAccess::Compiled(e)->shaped, count, params,
                                                 ExpressionAccess::Params(e), ExpressionAccess::ParamCount(e),
                                                 result)) {
    case vexa_compiled::ShapedEntry::kDone: return true;
    case vexa_compiled::ShapedEntry::kUseTree: return TreeExit(self, count, params, result);
    case vexa_compiled::ShapedEntry::kNotTaken: break;
    }
    return ExpressionAccess::EvaluateLong(e, count, params, result);
}

bool AssignExit(VEXA_Data& result, double v)
{
    DataAccess::AssignScalar(result, v);
    return true;
}

// Machine code is only a faster way to the same answer: without memory for
// it, the interpreter goes on.
void MakeMachineCode(Expression& e, CompiledRoot& c, int count)
{
    const Layout layout{ExpressionAccess::ParamCountOffset(e), ExpressionAccess::ParamsOffset(e),
                                       static_cast<std::int32_t>(sizeof(VEXA_Data)), DataAccess::ShapeOffset(),
                                       DataAccess::DataOffset(), DataAccess::SpaceOffset()};
    try {
        c.machine = MachineCode::Make(*c.program, count, c.registers.data(), &c.space, layout,
                                                     {LongExit, TreeExit, AssignExit});
    } catch (const std::bad_alloc&) {
        c.machine.reset();
    }
    if (c.machine)
        ExpressionAccess::SetFastPath(e, c.machine->entry());
}

// Evaluate in one step (ICalculator::FastEvaluate): the parameters are
// scalars into held scalars of the same count, which SetParams would copy
// element by element; the program then reads them. Anything else goes the
// long way. Copying before that is harmless: the long way copies the same
// values again.
bool FastEvaluate(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    Expression& e = static_cast<Expression&>(self);
    CompiledRoot& c = *ExpressionAccess::Compiled(e);
    if (count != ExpressionAccess::ParamCount(e) || count < c.program->neededParams())
        return LongExit(self, count, params, result);
    if (c.runs >= 0 && ++c.runs > RunsBeforeMachineCode() &&
        RunsBeforeMachineCode() >= 0) {
        c.runs = -1;  // one attempt
        MakeMachineCode(e, c, count);
        if (c.machine)
            return c.machine->entry()(self, count, params, result);
    }
    VEXA_Data* held = ExpressionAccess::Params(e);
    for (int i = 0; i < count; ++i) {
        if (!DataAccess::IsScalar(params[i]) || !DataAccess::IsScalar(held[i]))
            return LongExit(self, count, params, result);
        DataAccess::SetScalar(held[i], DataAccess::Scalar(params[i]));
    }
    return Run(c, held, result) || TreeExit(self, count, params, result);
}

// Kept out of line: it runs once per tree, and the evaluation path that
// calls it should not pay for its frame.
VEXA_NOINLINE CompiledRoot* MakeCompiled(Expression& e)
{
    std::unique_ptr<CompiledRoot> made(new CompiledRoot());
    // Made as in the default floating-point environment whatever the host
    // has set, and without a trap the host has unmasked: the program folds
    // only what comes out the same under every setting.
    vexa_platform::DefaultFloatScope scope;
    made->program = Compile(ExpressionAccess::Root(e), &e);
    if (made->program) {
        made->registers = made->program->initialRegisters();
        made->space.args.resize(static_cast<std::size_t>(made->program->callArity()));
        ExpressionAccess::SetFastPath(e, FastEvaluate);
    } else {
        ExpressionAccess::SetFastPath(e, LongExit);
    }
    return made.release();
}

}  // namespace

bool CalculateCompiled(Expression& e, VEXA_Data& result)
{
    CompiledRoot*& compiled = ExpressionAccess::Compiled(e);
    if (!compiled)
        compiled = MakeCompiled(e);
    // The program reads scalars; a parameter it needs that is missing or of
    // another kind is the shaped program's or the tree's to handle.
    const int count = ExpressionAccess::ParamCount(e);
    const VEXA_Data* held = ExpressionAccess::Params(e);
    bool scalars = compiled->program && count >= compiled->program->neededParams();
    for (std::size_t i = 0; scalars && i < compiled->program->paramLoads().size(); ++i)
        scalars = DataAccess::IsScalar(held[compiled->program->paramLoads()[i].first]);
    if (!scalars)
        return vexa_compiled::EvaluateShaped(compiled->shaped, ExpressionAccess::Root(e), &e, held, count, result);
    return Run(*compiled, held, result);
}

void DestroyCompiled(CompiledRoot* compiled)
{
    delete compiled;
}

std::size_t ShapedProgramSize(Expression& e)
{
    const CompiledRoot* c = ExpressionAccess::Compiled(e);
    return c && c->shaped.program ? c->shaped.program->size() : 0;
}

}  // namespace vexa_compiled
