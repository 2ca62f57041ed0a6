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
    // Machine code for the shaped program of one signature, made once that
    // program has run in place often enough; one attempt. It keeps its own
    // unrolled program and registers, and checks its signature itself, so
    // a later change of the cache's signature leaves it correct.
    struct ShapedMachine {
        std::unique_ptr<vexa_compiled::Program> program;
        std::vector<double> registers;
        vexa_compiled::ValueShapes shapes;
        std::unique_ptr<vexa_compiled::MachineCode> code;
    };
    std::unique_ptr<ShapedMachine> shaped_machine;
    int shaped_runs = 0;
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

void MakeShapedMachineCode(Expression& e, CompiledRoot& c);

// Rows and matrices of the shapes the shaped program was made for go to it
// directly; anything else the long way.
bool LongExit(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    Expression& e = static_cast<Expression&>(self);
    CompiledRoot& c = *ExpressionAccess::Compiled(e);
    switch (vexa_compiled::EvaluateShapedInPlace(c.shaped, count, params, ExpressionAccess::Params(e),
                                                 ExpressionAccess::ParamCount(e), result)) {
    case vexa_compiled::ShapedEntry::kDone:
        if (c.shaped_runs >= 0 && RunsBeforeMachineCode() >= 0 && ++c.shaped_runs > RunsBeforeMachineCode()) {
            c.shaped_runs = -1;  // one attempt
            MakeShapedMachineCode(e, c);
        }
        return true;
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

bool FastEvaluate(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result);

// What the shaped machine code does not take goes where it would have gone
// without it, the scalar program's machine code included (never to the
// shaped code again: none of these ways leads there).
bool ShapedMissExit(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result)
{
    const CompiledRoot& c = *ExpressionAccess::Compiled(static_cast<Expression&>(self));
    if (c.machine)
        return c.machine->entry()(self, count, params, result);
    if (c.program)
        return FastEvaluate(self, count, params, result);
    return LongExit(self, count, params, result);
}

// The result made from the elements the shaped code left in its registers.
bool ShapedResultExit(ICalculator& self, int, VEXA_Data*, VEXA_Data& result)
{
    const CompiledRoot::ShapedMachine& m = *ExpressionAccess::Compiled(static_cast<Expression&>(self))->shaped_machine;
    const ValueShapes::Value& r = m.shapes.result;
    if (!DataAccess::AssignInline(result, r.rows, r.cols, m.registers.data() + r.first)) {
        VEXA_Data made(r.rows, r.cols);
        for (int k = 0; k < r.rows * r.cols; ++k)
            made.getValue()[k] = m.registers[r.first + static_cast<std::size_t>(k)];
        result = made;
    }
    return true;
}

Layout LayoutOf(Expression& e)
{
    return Layout{ExpressionAccess::ParamCountOffset(e), ExpressionAccess::ParamsOffset(e),
                  static_cast<std::int32_t>(sizeof(VEXA_Data)), DataAccess::ShapeOffset(), DataAccess::DataOffset(),
                  DataAccess::SpaceOffset()};
}

// Machine code for the shaped program of the cache's signature, installed
// as the one-step evaluation; without it the interpreter goes on.
void MakeShapedMachineCode(Expression& e, CompiledRoot& c)
{
    const ShapedProgram* shaped = c.shaped.program.get();
    if (!shaped)
        return;
    try {
        std::unique_ptr<CompiledRoot::ShapedMachine> m(new CompiledRoot::ShapedMachine());
        m->program = shaped->Unrolled();
        if (!m->program)
            return;
        m->registers = m->program->initialRegisters();
        for (const Shape& s : c.shaped.signature)
            m->shapes.params.push_back({s.rows, s.cols, ValueShapes::kUnread});
        for (const ShapedProgram::Load& load : shaped->loads())
            m->shapes.params[static_cast<std::size_t>(load.param)].first = load.slot;
        m->shapes.result = {shaped->resultShape().rows, shaped->resultShape().cols, shaped->resultSlot()};
        Exits exits{ShapedMissExit, TreeExit, AssignExit};
        exits.shaped_result = ShapedResultExit;
        m->code = MachineCode::MakeShaped(*m->program, m->shapes, m->registers.data(), LayoutOf(e), exits);
        if (!m->code)
            return;
        c.shaped_machine = std::move(m);
    } catch (const std::bad_alloc&) {
        return;
    }
    ExpressionAccess::SetFastPath(e, c.shaped_machine->code->entry());
}

// Machine code is only a faster way to the same answer: without memory for
// it, the interpreter goes on.
void MakeMachineCode(Expression& e, CompiledRoot& c, int count)
{
    const Layout layout = LayoutOf(e);
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

bool RunsShapedMachineCode(Expression& e)
{
    const CompiledRoot* c = ExpressionAccess::Compiled(e);
    return c && c->shaped_machine && ExpressionAccess::FastPath(e) == c->shaped_machine->code->entry();
}

}  // namespace vexa_compiled
