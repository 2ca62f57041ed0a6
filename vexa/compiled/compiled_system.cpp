#include "vexa/compiled/compiled_system.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/compiled/form.h"
#include "vexa/compiled/point_bounds.h"
#include "vexa/compiled/point_split.h"
#include "vexa/compiled/program/compiler.h"
#include "vexa/compiled/run/block_run.h"
#include "vexa/compiled/run/point_run.h"
#include "vexa/core/float_ops.h"
#include "vexa/core/platform.h"
#include "vexa/tree/variable_param.h"

namespace vexa_compiled {

struct FormAccess {
    static const Form& Of(const vexa::CompiledExpression& e) { return *e.m_form; }
};

// One output's reverse sweep over the shared program: only the instructions
// its value depends on, so a Jacobian costs no more sweeping than one
// gradient per output.
struct OutputSweep {
    std::uint32_t result = 0;
    std::vector<Unit::Back> backs;
    std::vector<std::uint32_t> registers;              // adjoints to clear first
    std::vector<std::pair<int, std::uint32_t> > loads;  // (parameter, register) the sweep reaches
};

struct SystemCore {
    // Before the form: the form's calls reach into the outputs' private copies.
    std::vector<std::unique_ptr<vexa::CompiledExpression> > outputs;
    std::vector<std::vector<int> > reads;
    int params = 0;
    std::unique_ptr<Form> form;        // null: every output is evaluated alone
    std::vector<int> slot;             // by output: its place among the program's results, or -1
    std::vector<int> programmed;       // by place: the output
    std::vector<OutputSweep> sweeps;   // by place
    std::vector<std::pair<int, int> > sparsity;

    int size() const { return static_cast<int>(outputs.size()); }
};

struct SystemSpace {
    explicit SystemSpace(const SystemCore& c) : core(c), own(c.outputs.size())
    {
        if (c.form)
            space.reset(new Space(*c.form));
    }

    // The output's own workspace, made on first need: most points never
    // need one.
    vexa::Workspace& Own(int i)
    {
        std::unique_ptr<vexa::Workspace>& w = own[static_cast<std::size_t>(i)];
        if (!w)
            w.reset(new vexa::Workspace(*core.outputs[static_cast<std::size_t>(i)]));
        return *w;
    }

    // The system's point as output i's own parameters.
    const double* Mapped(int i, const double* point)
    {
        const std::vector<int>& reads = core.reads[static_cast<std::size_t>(i)];
        mapped.resize(reads.size());
        for (std::size_t k = 0; k < reads.size(); ++k)
            mapped[k] = point[reads[k]];
        return mapped.data();
    }

    const SystemCore& core;
    std::unique_ptr<Space> space;
    std::vector<std::unique_ptr<vexa::Workspace> > own;
    std::vector<double> mapped;
    std::vector<double> grad;
    std::vector<double> columns;
};

namespace {

using vexa::Outcome;
using vexa::Report;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

void Note(Report& report, std::size_t max, std::size_t index, const Outcome& o)
{
    ++report.failed;
    ++report.by_kind[static_cast<int>(o.failure)];
    if (report.first.size() < max)
        report.first.push_back({index, o.failure, o.code});
}

void Gather(const vexa::Column* columns, int count, std::size_t point, double* out)
{
    for (int k = 0; k < count; ++k)
        out[k] = columns[k].data[static_cast<std::ptrdiff_t>(point) * columns[k].stride];
}

std::string Refusal(const std::vector<ICalculator*>& outputs, const std::vector<std::vector<int> >* reads,
                    int params)
{
    if (outputs.empty())
        return "no outputs";
    if (!reads)
        return std::string();
    if (reads->size() != outputs.size())
        return "the parameter lists are not one per output";
    if (params < 0)
        return "a negative parameter count";
    std::vector<char> seen(static_cast<std::size_t>(params));
    for (std::size_t i = 0; i < reads->size(); ++i) {
        std::fill(seen.begin(), seen.end(), 0);
        for (const int k : (*reads)[i]) {
            if (k < 0 || k >= params)
                return "output " + std::to_string(i) + " reads parameter " + std::to_string(k) +
                       ", which the system has not";
            if (seen[static_cast<std::size_t>(k)]++)
                return "output " + std::to_string(i) + " reads parameter " + std::to_string(k) + " twice";
        }
    }
    return std::string();
}

// Marks what result depends on, walking the program backwards. With
// callees, a call depends only on the arguments its program reads.
std::vector<char> Cone(const Unit& u, std::uint32_t result, bool callees)
{
    std::vector<char> need(u.program->initialRegisters().size(), 0);
    need[result] = 1;
    for (auto step = u.steps.rbegin(); step != u.steps.rend(); ++step) {
        if (!need[step->d])
            continue;
        const Unit* callee = nullptr;
        if (callees && step->op == kCall) {
            const Callee& c = u.callees[step->c];
            callee = c.unit && c.unit->program ? c.unit : nullptr;
        }
        for (std::uint32_t j = 0; j < step->count; ++j) {
            bool reads = true;
            if (callee) {
                reads = false;
                for (const auto& load : callee->program->paramLoads())
                    reads = reads || load.first == static_cast<int>(j);
            }
            if (reads)
                need[u.operands[step->first + j]] = 1;
        }
    }
    return need;
}

void Describe(SystemCore& c)
{
    const int m = c.size();
    if (c.form) {
        const Unit& u = c.form->top();
        const Program& p = *u.program;
        for (std::size_t j = 0; j < c.programmed.size(); ++j) {
            OutputSweep sweep;
            sweep.result = p.resultRegisters()[j];
            const std::vector<char> need = Cone(u, sweep.result, false);
            for (const Unit::Back& back : u.backs) {
                if (need[back.result])
                    sweep.backs.push_back(back);
            }
            for (const std::uint32_t r : u.activeRegisters) {
                if (need[r])
                    sweep.registers.push_back(r);
            }
            for (const auto& load : p.paramLoads()) {
                if (need[load.second])
                    sweep.loads.push_back(load);
            }
            const std::vector<char> reach = Cone(u, sweep.result, true);
            for (const auto& load : p.paramLoads()) {
                if (reach[load.second])
                    c.sparsity.emplace_back(c.programmed[j], load.first);
            }
            c.sweeps.push_back(std::move(sweep));
        }
    }
    for (int i = 0; i < m; ++i) {
        if (c.slot[static_cast<std::size_t>(i)] >= 0)
            continue;
        // A tree alone: whatever its leaves read.
        const Form& f = FormAccess::Of(*c.outputs[static_cast<std::size_t>(i)]);
        std::vector<VariableParam*> leaves;
        if (INode* root = vexa_calc::ExpressionAccess::Root(*f.snapshot))
            root->getVariableParams(leaves);
        const std::vector<int>& reads = c.reads[static_cast<std::size_t>(i)];
        for (const VariableParam* leaf : leaves) {
            if (leaf->m_index >= 0 && static_cast<std::size_t>(leaf->m_index) < reads.size())
                c.sparsity.emplace_back(i, reads[static_cast<std::size_t>(leaf->m_index)]);
        }
    }
    std::sort(c.sparsity.begin(), c.sparsity.end());
    c.sparsity.erase(std::unique(c.sparsity.begin(), c.sparsity.end()), c.sparsity.end());
}

// The outputs, their own forms, and the one program of those that run as one.
std::unique_ptr<SystemCore> MakeCore(const std::vector<ICalculator*>& outputs,
                                     const std::vector<std::vector<int> >* reads, int params, std::string& why)
{
    why = Refusal(outputs, reads, params);
    if (!why.empty())
        return nullptr;
    std::unique_ptr<SystemCore> c(new SystemCore());
    const int m = static_cast<int>(outputs.size());
    for (int i = 0; i < m; ++i) {
        ICalculator* calc = outputs[static_cast<std::size_t>(i)];
        const int count = reads ? static_cast<int>((*reads)[static_cast<std::size_t>(i)].size()) : params;
        std::string reason;
        std::unique_ptr<vexa::CompiledExpression> own = vexa::CompiledExpression::Make(calc, count, &reason);
        if (!own) {
            why = "output " + std::to_string(i) + ": " + reason;
            return nullptr;
        }
        if (reads) {
            c->reads.push_back((*reads)[static_cast<std::size_t>(i)]);
        } else {
            std::vector<int> same(static_cast<std::size_t>(own->paramCount()));
            for (std::size_t k = 0; k < same.size(); ++k)
                same[k] = static_cast<int>(k);
            c->reads.push_back(std::move(same));
            c->params = std::max(c->params, own->paramCount());
        }
        c->outputs.push_back(std::move(own));
    }
    if (reads)
        c->params = params;
    std::vector<ProgramRoot> roots;
    c->slot.assign(static_cast<std::size_t>(m), -1);
    for (int i = 0; i < m; ++i) {
        const vexa::CompiledExpression& own = *c->outputs[static_cast<std::size_t>(i)];
        if (!own.runsAsProgram())
            continue;
        Expression* tree = FormAccess::Of(own).snapshot;
        c->slot[static_cast<std::size_t>(i)] = static_cast<int>(roots.size());
        c->programmed.push_back(i);
        roots.push_back({vexa_calc::ExpressionAccess::Root(*tree), tree, c->reads[static_cast<std::size_t>(i)]});
    }
    if (!roots.empty()) {
        // Constants fold as in the outputs' own programs: in the default
        // environment, whatever the host has set.
        vexa_platform::DefaultFloatScope scope;
        std::unique_ptr<Program> program = CompileAll(roots);
        if (program)
            c->form = MakeFormOf(std::move(program), c->params, why);
        if (program && !c->form)
            return nullptr;
    }
    if (!c->form || !c->form->top().program) {
        // Every output then goes alone, which gives the same values.
        c->form.reset();
        std::fill(c->slot.begin(), c->slot.end(), -1);
        c->programmed.clear();
    }
    Describe(*c);
    return c;
}

Outcome OwnValue(SystemSpace& w, int i, const double* point, bool strict)
{
    return w.core.outputs[static_cast<std::size_t>(i)]->Evaluate(w.Mapped(i, point), w.Own(i), strict);
}

void EvaluatePoint(SystemSpace& w, const double* point, double* out, bool strict, std::size_t base,
                   std::size_t max, Report& report)
{
    const SystemCore& c = w.core;
    bool ran = false;
    if (c.form) {
        const Unit& top = c.form->top();
        ran = RunSteps(top, *w.space, point, false) == kGoes;
        if (ran) {
            const double* r = w.space->of(top).regs.data();
            for (std::size_t j = 0; j < c.programmed.size(); ++j)
                out[c.programmed[j]] = r[c.sweeps[j].result];
        }
    }
    for (int i = 0; i < c.size(); ++i) {
        if (ran && c.slot[static_cast<std::size_t>(i)] >= 0)
            continue;
        const Outcome o = OwnValue(w, i, point, strict);
        out[i] = o.value;
        if (!o.ok())
            Note(report, max, base + static_cast<std::size_t>(i), o);
    }
}

void EvaluateRange(SystemSpace& w, std::size_t begin, std::size_t end, const vexa::Column* columns, double* out,
                   const vexa::Options& options, Report& report)
{
    const SystemCore& c = w.core;
    const std::size_t m = c.outputs.size();
    const int count = c.params;
    std::vector<double> point(static_cast<std::size_t>(count));
    // Under a host's own floating-point environment the lanes may not run
    // (see CompiledExpression::EvaluateMany); one point at a time does.
    if (!c.form || !vexa_platform::DefaultFloatEnvironment()) {
        for (std::size_t i = begin; i < end; ++i) {
            Gather(columns, count, i, point.data());
            EvaluatePoint(w, point.data(), out + i * m, options.strict, i * m, options.max_reported, report);
        }
        return;
    }
    const Unit& top = c.form->top();
    const int block = c.form->block;
    w.columns.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(block));
    std::vector<const double*> args(static_cast<std::size_t>(count));
    std::uint8_t stop[kBlock];
    const bool all = c.programmed.size() == m;
    for (std::size_t from = begin; from < end; from += static_cast<std::size_t>(block)) {
        const int lanes = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(block), end - from));
        for (int k = 0; k < count; ++k) {
            const vexa::Column& col = columns[k];
            double* space = w.columns.data() + static_cast<std::size_t>(k) * static_cast<std::size_t>(block);
            if (col.stride == 1 && lanes == block) {
                args[static_cast<std::size_t>(k)] = col.data + from;
                continue;
            }
            for (int l = 0; l < lanes; ++l)
                space[l] = col.data[static_cast<std::ptrdiff_t>(from + static_cast<std::size_t>(l)) * col.stride];
            args[static_cast<std::size_t>(k)] = space;
        }
        std::memset(stop, 0, sizeof stop);
        RunBlockSteps(top, *w.space, args.data(), lanes, stop);
        const UnitSpace& us = w.space->of(top);
        for (std::size_t j = 0; j < c.programmed.size(); ++j) {
            const double* at = us.at[c.sweeps[j].result];
            double* to = out + from * m + static_cast<std::size_t>(c.programmed[j]);
            for (int l = 0; l < lanes; ++l)
                to[static_cast<std::size_t>(l) * m] = at[l];
        }
        for (int l = 0; l < lanes; ++l) {
            if (all && !stop[l])
                continue;
            const std::size_t index = from + static_cast<std::size_t>(l);
            Gather(columns, count, index, point.data());
            for (std::size_t i = 0; i < m; ++i) {
                if (!stop[l] && c.slot[i] >= 0)
                    continue;
                const Outcome o = OwnValue(w, static_cast<int>(i), point.data(), options.strict);
                out[index * m + i] = o.value;
                if (!o.ok())
                    Note(report, options.max_reported, index * m + i, o);
            }
        }
    }
}

// Output i's row from its own gradient.
Outcome OwnGradient(SystemSpace& w, int i, const double* point, double* row)
{
    const SystemCore& c = w.core;
    const std::vector<int>& reads = c.reads[static_cast<std::size_t>(i)];
    w.grad.resize(std::max<std::size_t>(reads.size(), 1));
    const Outcome o = c.outputs[static_cast<std::size_t>(i)]->Gradient(w.Mapped(i, point), w.grad.data(), w.Own(i));
    std::fill(row, row + c.params, o.ok() ? 0.0 : kNaN);
    if (o.ok()) {
        for (std::size_t k = 0; k < reads.size(); ++k)
            row[reads[k]] = w.grad[k];
    }
    return o;
}

void JacobianPoint(SystemSpace& w, const double* point, double* out, double* jacobian, std::size_t base,
                   std::size_t max, Report& report)
{
    const SystemCore& c = w.core;
    const std::size_t width = static_cast<std::size_t>(c.params);
    bool ran = false;
    // Partials are the default environment's; the outputs' own gradients
    // see to that, and to values under a host's environment.
    if (c.form && vexa_platform::DefaultFloatEnvironment()) {
        const Unit& top = c.form->top();
        ran = RunSteps(top, *w.space, point, true) == kGoes;
        if (ran) {
            UnitSpace& us = w.space->of(top);
            const double* r = us.regs.data();
            const double* tape = us.tape.data();
            double* adjoint = us.adjoint.data();
            for (std::size_t j = 0; j < c.programmed.size(); ++j) {
                const OutputSweep& sweep = c.sweeps[j];
                const std::size_t i = static_cast<std::size_t>(c.programmed[j]);
                double* row = jacobian + i * width;
                std::fill(row, row + width, 0.0);
                for (const std::uint32_t reg : sweep.registers)
                    adjoint[reg] = 0.0;
                adjoint[sweep.result] = 1.0;
                // As the one-output sweep adds: same order, same zero test.
                for (const Unit::Back& back : sweep.backs) {
                    const double g = adjoint[back.result];
                    if (g != 0.0)
                        adjoint[back.operand] =
                            vexa_core::Sum(adjoint[back.operand], vexa_core::Product(g, tape[back.position]));
                }
                for (const auto& load : sweep.loads)
                    row[load.first] = adjoint[load.second];
                if (out)
                    out[i] = r[sweep.result];
            }
        }
    }
    for (int i = 0; i < c.size(); ++i) {
        if (ran && c.slot[static_cast<std::size_t>(i)] >= 0)
            continue;
        const Outcome o = OwnGradient(w, i, point, jacobian + static_cast<std::size_t>(i) * width);
        if (out)
            out[i] = o.value;
        if (!o.ok())
            Note(report, max, base + static_cast<std::size_t>(i), o);
    }
}

}  // namespace
}  // namespace vexa_compiled

namespace vexa {

using namespace vexa_compiled;

CompiledSystem::CompiledSystem(SystemCore* core) : m_core(core) {}

CompiledSystem::~CompiledSystem()
{
    delete m_core;
}

std::unique_ptr<CompiledSystem> CompiledSystem::Make(const std::vector<ICalculator*>& outputs, int params,
                                                     std::string* why)
{
    std::string reason;
    std::unique_ptr<SystemCore> core = MakeCore(outputs, nullptr, params, reason);
    if (!core) {
        if (why)
            *why = "the system cannot be compiled: " + reason;
        return nullptr;
    }
    return std::unique_ptr<CompiledSystem>(new CompiledSystem(core.release()));
}

std::unique_ptr<CompiledSystem> CompiledSystem::Make(const std::vector<ICalculator*>& outputs,
                                                     const std::vector<std::vector<int> >& reads, int params,
                                                     std::string* why)
{
    std::string reason;
    std::unique_ptr<SystemCore> core = MakeCore(outputs, &reads, params, reason);
    if (!core) {
        if (why)
            *why = "the system cannot be compiled: " + reason;
        return nullptr;
    }
    return std::unique_ptr<CompiledSystem>(new CompiledSystem(core.release()));
}

int CompiledSystem::outputCount() const
{
    return m_core->size();
}

int CompiledSystem::paramCount() const
{
    return m_core->params;
}

int CompiledSystem::programOutputs() const
{
    return static_cast<int>(m_core->programmed.size());
}

const CompiledExpression& CompiledSystem::output(int i) const
{
    return *m_core->outputs.at(static_cast<std::size_t>(i));
}

const std::vector<int>& CompiledSystem::reads(int i) const
{
    return m_core->reads.at(static_cast<std::size_t>(i));
}

const std::vector<std::pair<int, int> >& CompiledSystem::Sparsity() const
{
    return m_core->sparsity;
}

namespace {

SystemSpace& SpaceOf(const SystemCore* core, SystemSpace* space)
{
    if (&space->core != core)
        throw std::invalid_argument("vexa: a workspace of another compiled system");
    return *space;
}

std::size_t Width(const SystemCore& c)
{
    return c.outputs.size() * std::max<std::size_t>(static_cast<std::size_t>(c.params), 1);
}

}  // namespace

Report CompiledSystem::Evaluate(const double* params, double* outputs, SystemWorkspace& ws, bool strict) const
{
    Report report;
    EvaluatePoint(SpaceOf(m_core, ws.m_space), params, outputs, strict, 0, Options().max_reported, report);
    return report;
}

Report CompiledSystem::Jacobian(const double* params, double* outputs, double* jacobian, SystemWorkspace& ws) const
{
    Report report;
    JacobianPoint(SpaceOf(m_core, ws.m_space), params, outputs, jacobian, 0, Options().max_reported, report);
    return report;
}

Report CompiledSystem::EvaluateMany(std::size_t n, const Column* columns, double* outputs,
                                    const Options& options) const
{
    const SystemCore& c = *m_core;
    CheckPoints(n, c.params, columns, c.outputs.size());
    const std::size_t block = c.form ? static_cast<std::size_t>(c.form->block) : kBlock;
    return SplitPoints(n, block, options, [&](std::size_t begin, std::size_t end, Report& report) {
        SystemSpace w(c);
        EvaluateRange(w, begin, end, columns, outputs, options, report);
    });
}

Report CompiledSystem::JacobianMany(std::size_t n, const Column* columns, double* outputs, double* jacobians,
                                    const Options& options) const
{
    const SystemCore& c = *m_core;
    CheckPoints(n, c.params, columns, Width(c));
    const std::size_t m = c.outputs.size();
    const std::size_t width = m * static_cast<std::size_t>(c.params);
    return SplitPoints(n, kBlock, options, [&](std::size_t begin, std::size_t end, Report& report) {
        SystemSpace w(c);
        std::vector<double> point(static_cast<std::size_t>(c.params));
        for (std::size_t i = begin; i < end; ++i) {
            Gather(columns, c.params, i, point.data());
            JacobianPoint(w, point.data(), outputs ? outputs + i * m : nullptr, jacobians + i * width, i * m,
                          options.max_reported, report);
        }
    });
}

SystemWorkspace::SystemWorkspace(const CompiledSystem& s) : m_space(new SystemSpace(*s.m_core)) {}

SystemWorkspace::~SystemWorkspace()
{
    delete m_space;
}

}  // namespace vexa
