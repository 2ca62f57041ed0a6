#include "vexa/compiled/form.h"


#include <algorithm>
#include <map>
#include <typeinfo>

#include "vexa/calc/calculator_access.h"
#include "vexa/calc/expression_access.h"
#include "vexa/compiled/program/compiler.h"
#include "vexa/compiled/run/lanes.h"
#include "vexa/compiled/exact/forward_run.h"
#include "vexa/compiled/machine_gradient.h"
#include "vexa/compiled/snapshot.h"
#include "vexa/compiled/stack_room.h"
#include "vexa/tree/owning_step_calculator.h"
#include "vexa/tree/variable_param.h"

namespace vexa_compiled {

namespace {

using vexa_calc::CalculatorAccess;
using vexa_calc::ExpressionAccess;

// Wrappers nested deeper than this take 2^64 evaluations: never finished.
constexpr std::size_t kMaxDiffLevels = 64;

enum class Shape { kUnary, kBinary, kList, kEnd, kUnknown };

// From the table of operations; an op a runner may not know (a byte out of
// range) leaves its program to the tree.
Shape ShapeOf(std::uint8_t op)
{
    if (op >= kOpCount)
        return Shape::kUnknown;
    if (op == kReturn)
        return Shape::kEnd;
    switch (OperandsOf(static_cast<Op>(op))) {
    case Operands::kOne: return Shape::kUnary;
    case Operands::kTwo: return Shape::kBinary;
    case Operands::kList: return Shape::kList;
    case Operands::kNone: break;
    }
    return Shape::kUnknown;
}

bool IsStep(const ICalculator& c)
{
    const std::type_info& t = typeid(c);
    return t == typeid(ComplexStepCalculator) || t == typeid(vexa_tree::OwningStepCalculator);
}

// Fills the tables of the one-point runner; false for a program with an op
// the runners do not know.
bool Describe(Unit& u)
{
    const Program& p = *u.program;
    u.active.assign(p.initialRegisters().size(), 0);
    for (const auto& load : p.paramLoads())
        u.active[load.second] = 1;
    for (const Instr& in : p.code()) {
        Unit::Step step{in.op, false, in.d, in.c, static_cast<std::uint32_t>(u.operands.size()), 0};
        switch (ShapeOf(in.op)) {
        case Shape::kUnary:
            u.operands.push_back(in.a);
            break;
        case Shape::kBinary:
            u.operands.push_back(in.a);
            u.operands.push_back(in.b);
            break;
        case Shape::kList:
            for (std::uint32_t k = 0; k < in.b; ++k)
                u.operands.push_back(p.argRegisters()[in.a + k]);
            break;
        case Shape::kEnd:
            continue;
        case Shape::kUnknown:
            return false;
        }
        step.count = static_cast<std::uint32_t>(u.operands.size()) - step.first;
        for (std::uint32_t j = step.first; j < step.first + step.count; ++j)
            step.active = step.active || u.active[u.operands[j]];
        u.active[in.d] = step.active;
        u.steps.push_back(step);
    }
    for (auto step = u.steps.rbegin(); step != u.steps.rend(); ++step) {
        for (std::uint32_t j = step->first; j < step->first + step->count; ++j) {
            if (u.active[u.operands[j]])
                u.backs.push_back({step->d, u.operands[j], j});
        }
    }
    for (std::uint32_t r = 0; r < u.active.size(); ++r) {
        if (u.active[r])
            u.activeRegisters.push_back(r);
    }
    // Registers no instruction writes and no parameter loads hold constants.
    const std::vector<double>& init = p.initialRegisters();
    u.numberConstant.assign(init.size(), 1);
    for (const auto& load : p.paramLoads())
        u.numberConstant[load.second] = 0;
    for (const Instr& in : p.code())
        u.numberConstant[in.d] = 0;
    for (std::size_t r = 0; r < init.size(); ++r) {
        if (init[r] != init[r])
            u.numberConstant[r] = 0;
    }
    u.tape.assign(u.operands.size(), 0.0);
    for (const Unit::Step& step : u.steps) {
        if (step.op == kAdd || step.op == kSub) {
            u.tape[step.first] = 1.0;
            u.tape[step.first + 1] = step.op == kAdd ? 1.0 : -1.0;
        }
    }
    return true;
}

class Builder {
public:
    explicit Builder(Form& form) : m_form(form) {}

    // Whether a unit was left without its program for want of stack.
    bool noRoom() const { return m_no_room; }

    const Unit* UnitOf(Expression& e)
    {
        const auto found = m_units.find(&e);
        if (found != m_units.end())
            return found->second;
        std::unique_ptr<Unit> made(new Unit());
        Unit* u = made.get();
        u->id = static_cast<int>(m_form.units.size());
        m_form.units.push_back(std::move(made));
        m_units.emplace(&e, u);
        if (!RoomForStep()) {
            m_no_room = true;
            return u;
        }
        u->program = Compile(ExpressionAccess::Root(e), &e);
        Complete(*u);
        return u;
    }

    // The first unit, for a program made elsewhere.
    void Top(std::unique_ptr<Program> program)
    {
        std::unique_ptr<Unit> made(new Unit());
        Unit* u = made.get();
        u->id = static_cast<int>(m_form.units.size());
        m_form.units.push_back(std::move(made));
        u->program = std::move(program);
        Complete(*u);
    }

private:
    void Complete(Unit& u)
    {
        if (u.program && !Describe(u)) {
            u.program.reset();
            return;
        }
        if (u.program) {
            for (ICalculator* c : u.program->calls())
                u.callees.push_back(CalleeOf(c));
        }
    }

    Callee CalleeOf(ICalculator* c)
    {
        Callee callee;
        while (c && IsStep(*c) && callee.shifted.size() <= kMaxDiffLevels) {
            const ComplexStepCalculator& step = static_cast<ComplexStepCalculator&>(*c);
            callee.shifted.push_back(CalculatorAccess::Index(step));
            c = CalculatorAccess::Inner(step);
        }
        if (c && typeid(*c) == typeid(Expression) && callee.shifted.size() <= kMaxDiffLevels)
            callee.unit = UnitOf(static_cast<Expression&>(*c));
        return callee;
    }

    Form& m_form;
    std::map<Expression*, const Unit*> m_units;
    bool m_no_room = false;
};

// One more than the highest parameter index the tree reads.
int ReadCount(Expression& e)
{
    std::vector<VariableParam*> leaves;
    if (INode* root = ExpressionAccess::Root(e))
        root->getVariableParams(leaves);
    int count = 0;
    for (const VariableParam* leaf : leaves) {
        if (leaf->m_index >= count)
            count = leaf->m_index + 1;
    }
    return count;
}

void SizeBlocks(Form& form)
{
    // A derivative tree can compile into tens of thousands of registers.
    const std::size_t kMostBlockBytes = 1u << 20;
    std::size_t registers = 0;
    for (const auto& u : form.units)
        registers += u->program ? u->program->initialRegisters().size() : 0;
    const std::size_t fits = kMostBlockBytes / sizeof(double) / std::max<std::size_t>(registers, 1);
    form.block = static_cast<int>(std::max<std::size_t>(kLaneGroup, std::min<std::size_t>(kBlock, fits)) /
                                  kLaneGroup * kLaneGroup);
}

}  // namespace

Form::~Form()
{
    m_gradient.reset();
    units.clear();
    if (snapshot)
        snapshot->Release();
}

std::unique_ptr<Form> MakeForm(Expression& e, int params, std::string& why)
{
    std::unique_ptr<Form> form(new Form());
    form->snapshot = PrivateCopy(e, why);
    if (!form->snapshot)
        return nullptr;
    Builder builder(*form);
    builder.UnitOf(*form->snapshot);
    if (builder.noRoom()) {
        why = "the thread's stack has no room left to compile it";
        return nullptr;
    }
    form->params = params >= 0 ? params : ReadCount(*form->snapshot);
    SizeBlocks(*form);
    return form;
}

std::unique_ptr<Form> MakeFormOf(std::unique_ptr<Program> program, int params, std::string& why)
{
    std::unique_ptr<Form> form(new Form());
    Builder builder(*form);
    builder.Top(std::move(program));
    if (builder.noRoom()) {
        why = "the thread's stack has no room left to compile it";
        return nullptr;
    }
    form->params = params;
    SizeBlocks(*form);
    return form;
}

const GradientCode* Form::MakeGradientCode() const
{
    // Threads asking at once wait for the one that makes it; where it cannot
    // be made (no executable memory) the runner serves. Exhausted memory
    // passes to the caller, as anywhere in Gradient, and the next request
    // tries again.
    std::lock_guard<std::mutex> hold(m_gradientLock);
    if (!m_gradientMade.load(std::memory_order_relaxed)) {
        if (top().Runs(params))
            m_gradient = GradientCode::Make(top(), params);
        m_gradientMade.store(true, std::memory_order_release);
    }
    return m_gradient.get();
}

Space::Space(const Form& f) : form(f), units(f.units.size()) {}


Space::~Space()
{
    if (tree)
        tree->Release();
}

}  // namespace vexa_compiled
