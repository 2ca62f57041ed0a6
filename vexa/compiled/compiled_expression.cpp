#include "vexa/compiled/compiled_expression.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <stdexcept>
#include <typeinfo>

#include "vexa/calc/call_errors.h"
#include "vexa/calc/expression.h"
#include "vexa/compiled/exact/forward_run.h"
#include "vexa/compiled/run/block_run.h"
#include "vexa/compiled/form.h"
#include "vexa/compiled/machine_gradient.h"
#include "vexa/compiled/point_bounds.h"
#include "vexa/compiled/point_split.h"
#include "vexa/compiled/run/point_run.h"
#include "vexa/compiled/snapshot.h"
#include "vexa/core/data_access.h"
#include "vexa/core/platform.h"

namespace vexa {

namespace {

using namespace vexa_compiled;
using vexa_core::DataAccess;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

Outcome Failed(Failure failure, int code = 0)
{
    return {kNaN, failure, code};
}

// calc->Evaluate at params, through values (count of them, reused).
Outcome EvaluateCalculator(ICalculator* calc, std::vector<VEXA_Data>& values, const double* params, int count)
{
    values.resize(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
        DataAccess::AssignScalar(values[static_cast<std::size_t>(k)], params[k]);
    VEXA_Data result;
    try {
        calc->Evaluate(count, values.data(), result);
    } catch (int code) {
        return Failed(Failure::kThrown, code);
    }
    if (result.getType() == DT_NULL)
        return Failed(Failure::kNull);
    if (!DataAccess::IsScalar(result))
        return Failed(Failure::kNotScalar);
    return {DataAccess::Scalar(result), Failure::kNone, 0};
}

// The workspace's own copy of the tree, made on first need: most forms
// never need it.
Expression* PrivateTree(Space& s)
{
    if (!s.tree) {
        std::string why;
        s.tree = PrivateCopy(*s.form.snapshot, why);
        // The snapshot was copied once already, so it copies again.
        if (!s.tree)
            throw std::logic_error("vexa: the private copy of a compiled expression cannot be copied: " + why);
    }
    return s.tree;
}

// What calc->Evaluate gives at params, from the workspace's copy of the tree.
Outcome TreeOutcome(Space& s, const double* params)
{
    return EvaluateCalculator(PrivateTree(s), s.values, params, s.form.params);
}

// values[k] = point's value of column k, reusing each value's storage while
// the shape stays.
void GatherShaped(const ShapedColumn* columns, int count, std::size_t point, std::vector<VEXA_Data>& values)
{
    values.resize(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        const ShapedColumn& c = columns[k];
        const double* at = c.data + static_cast<std::ptrdiff_t>(point) * c.stride;
        VEXA_Data& v = values[static_cast<std::size_t>(k)];
        if (c.rows == 1 && c.cols == 1) {
            DataAccess::AssignScalar(v, *at);
            continue;
        }
        int rows = 0, cols = 0;
        v.getDataInfo(rows, cols);
        if (v.getType() == DT_NULL || rows != c.rows || cols != c.cols)
            v = VEXA_Data(c.rows, c.cols);
        std::memcpy(v.getValue(), at, static_cast<std::size_t>(c.rows) * static_cast<std::size_t>(c.cols) * sizeof(double));
    }
}

// calc->Evaluate with values: its rows x cols elements go to out, or NaN
// in all of them where it has none of that shape.
Outcome EvaluateShaped(ICalculator* calc, std::vector<VEXA_Data>& values, int rows, int cols, double* out)
{
    const std::size_t size = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    VEXA_Data result;
    Outcome o{0.0, Failure::kNone, 0};
    try {
        calc->Evaluate(static_cast<int>(values.size()), values.data(), result);
    } catch (int code) {
        o = Failed(Failure::kThrown, code);
    }
    if (o.ok()) {
        int r = 0, c = 0;
        result.getDataInfo(r, c);
        if (result.getType() == DT_NULL)
            o = Failed(Failure::kNull);
        else if (r != rows || c != cols)
            o = Failed(Failure::kWrongShape);
    }
    if (!o.ok()) {
        std::fill(out, out + size, kNaN);
        return o;
    }
    std::memcpy(out, result.getValue(), size * sizeof(double));
    o.value = out[0];
    return o;
}

// The answer at a point the program stopped at. At a zero divisor the tree
// throws -10001 there: everything before it went as in the program.
Outcome AfterStop(Space& s, StopReason why, bool strict, const double* params)
{
    if (why == kZeroDivisor)
        return Failed(Failure::kThrown, -10001);
    if (why == kTooDeep)
        return Failed(Failure::kThrown, vexa::kCallsTooDeep);
    if (strict && why == kRefusal)
        return Failed(Failure::kRefused);
    return TreeOutcome(s, params);
}

Outcome ValueAt(Space& s, const double* params, bool strict)
{
    const Form& f = s.form;
    if (!f.top().Runs(f.params))
        return TreeOutcome(s, params);
    double value;
    const StopReason why = RunPoint(f.top(), s, params, f.params, value, nullptr);
    if (why == kGoes)
        return {value, Failure::kNone, 0};
    return AfterStop(s, why, strict, params);
}

StopReason RunGradient(Space& s, const double* params, double* grad, double& value)
{
    const Form& f = s.form;
    if (const GradientCode* code = f.gradientCode()) {
        // The machine code runs in this thread's registers of the unit.
        UnitSpace& us = PreparedSpace(f.top(), s);
        GradientCall call{params, us.regs.data(), us.tape.data(), us.adjoint.data(), grad, &s, 0.0, nullptr};
        const StopReason why = code->Run(call);
        value = call.value;
        return why;
    }
    if (f.top().Runs(f.params))
        return RunPoint(f.top(), s, params, f.params, value, grad);
    return kTreeOnly;
}

// inDefault: whether the floating-point environment is the default one (read
// once per call of the host's: reading it costs more than an instruction).
Outcome GradientAt(Space& s, const double* params, double* grad, bool inDefault)
{
    const Form& f = s.form;
    double value = kNaN;
    StopReason why;
    if (inDefault) {
        why = RunGradient(s, params, grad, value);
    } else {
        // The partials are those of the default environment: the gradient
        // has no tree to follow a host's rounding, and it computes on
        // lanes and branches the tree never takes, which must not trap.
        // The value is the tree's under the host's environment, as
        // Evaluate gives it.
        {
            vexa_platform::DefaultFloatScope scope;
            why = RunGradient(s, params, grad, value);
        }
        if (why == kGoes) {
            const Outcome tree = TreeOutcome(s, params);
            if (!tree.ok())
                std::fill(grad, grad + f.params, kNaN);
            return tree;
        }
    }
    if (why == kGoes)
        return {value, Failure::kNone, 0};
    std::fill(grad, grad + f.params, kNaN);
    if (why != kTreeOnly)
        return AfterStop(s, why, true, params);
    // The tree may fail here anyway, which says more than that it has no
    // gradient.
    const Outcome tree = TreeOutcome(s, params);
    return tree.ok() ? Failed(Failure::kNoGradient) : tree;
}

void Note(Report& report, std::size_t max, std::size_t index, const Outcome& o)
{
    ++report.failed;
    ++report.by_kind[static_cast<int>(o.failure)];
    if (report.first.size() < max)
        report.first.push_back({index, o.failure, o.code});
}

void Gather(const Column* columns, int count, std::size_t point, double* out)
{
    for (int k = 0; k < count; ++k)
        out[k] = columns[k].data[static_cast<std::ptrdiff_t>(point) * columns[k].stride];
}

// A block of a column: in place where its values lie side by side and the
// block is whole, otherwise gathered into space (a block of values).
const double* ColumnBlock(const Column& c, std::size_t from, int lanes, int block, double* space)
{
    if (c.stride == 1 && lanes == block)
        return c.data + from;
    for (int i = 0; i < lanes; ++i)
        space[i] = c.data[static_cast<std::ptrdiff_t>(from + static_cast<std::size_t>(i)) * c.stride];
    return space;
}

void EvaluateRange(Space& s, std::size_t begin, std::size_t end, const Column* columns, double* results,
                   const Options& options, Report& report)
{
    const Form& f = s.form;
    const int count = f.params;
    std::vector<double> point(static_cast<std::size_t>(count));
    // Under a host's own floating-point environment only the tree gives
    // the tree's bits, and only it never computes on masked-off lanes.
    if (!f.top().Runs(count) || !vexa_platform::DefaultFloatEnvironment()) {
        for (std::size_t i = begin; i < end; ++i) {
            Gather(columns, count, i, point.data());
            const Outcome o = TreeOutcome(s, point.data());
            results[i] = o.value;
            if (!o.ok())
                Note(report, options.max_reported, i, o);
        }
        return;
    }
    const int block = f.block;
    s.columns.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(block));
    std::vector<const double*> args(static_cast<std::size_t>(count));
    std::uint8_t stop[kBlock];
    for (std::size_t from = begin; from < end; from += static_cast<std::size_t>(block)) {
        const int lanes = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(block), end - from));
        for (int k = 0; k < count; ++k) {
            double* space = s.columns.data() + static_cast<std::size_t>(k) * static_cast<std::size_t>(block);
            args[static_cast<std::size_t>(k)] = ColumnBlock(columns[k], from, lanes, block, space);
        }
        std::memset(stop, 0, sizeof stop);
        if (!RunBlock(f.top(), s, args.data(), lanes, results + from, stop))
            continue;
        for (int i = 0; i < lanes; ++i) {
            if (!stop[i])
                continue;
            const std::size_t index = from + static_cast<std::size_t>(i);
            Gather(columns, count, index, point.data());
            const Outcome o = AfterStop(s, static_cast<StopReason>(stop[i]), options.strict, point.data());
            results[index] = o.value;
            if (!o.ok())
                Note(report, options.max_reported, index, o);
        }
    }
}

void ShapedRange(Space& s, std::size_t begin, std::size_t end, const ShapedColumn* columns, int rows, int cols,
                 double* results, const Options& options, Report& report)
{
    Expression* tree = PrivateTree(s);
    const std::size_t per = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    std::vector<VEXA_Data> values;
    for (std::size_t i = begin; i < end; ++i) {
        GatherShaped(columns, s.form.params, i, values);
        const Outcome o = EvaluateShaped(tree, values, rows, cols, results + i * per);
        if (!o.ok())
            Note(report, options.max_reported, i, o);
    }
}

bool AllNumbers(const ShapedColumn* columns, int count, int rows, int cols)
{
    for (int k = 0; k < count; ++k) {
        if (columns[k].rows != 1 || columns[k].cols != 1)
            return false;
    }
    return rows == 1 && cols == 1;
}

// The shaped call's word for a number where the call asked for a number.
void AsWrongShape(Report& report)
{
    const int from = static_cast<int>(Failure::kNotScalar), to = static_cast<int>(Failure::kWrongShape);
    report.by_kind[to] += report.by_kind[from];
    report.by_kind[from] = 0;
    for (PointFailure& p : report.first) {
        if (p.failure == Failure::kNotScalar)
            p.failure = Failure::kWrongShape;
    }
}

std::vector<Column> ScalarColumns(const ShapedColumn* columns, int count)
{
    std::vector<Column> out(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
        out[static_cast<std::size_t>(k)] = {columns[k].data, columns[k].stride};
    return out;
}

void GradientRange(Space& s, std::size_t begin, std::size_t end, const Column* columns, double* values,
                   double* grads, const Options& options, Report& report)
{
    const int count = s.form.params;
    std::vector<double> point(static_cast<std::size_t>(count));
    const bool inDefault = vexa_platform::DefaultFloatEnvironment();
    for (std::size_t i = begin; i < end; ++i) {
        Gather(columns, count, i, point.data());
        const Outcome o = GradientAt(s, point.data(), grads + i * static_cast<std::size_t>(count), inDefault);
        values[i] = o.value;
        if (!o.ok())
            Note(report, options.max_reported, i, o);
    }
}

// One run of whole blocks per thread, each with a workspace of its own.
template <typename Work>
Report Split(const Form& f, std::size_t n, const Options& options, Work work)
{
    return SplitPoints(n, static_cast<std::size_t>(f.block), options,
                       [&](std::size_t begin, std::size_t end, Report& report) {
                           Space s(f);
                           work(s, begin, end, report);
                       });
}

}  // namespace

CompiledExpression::CompiledExpression(Form* form) : m_form(form) {}

CompiledExpression::~CompiledExpression()
{
    delete m_form;
}

std::unique_ptr<CompiledExpression> CompiledExpression::Make(ICalculator* calc, int params, std::string* why)
{
    std::string reason;
    // Only the library's own Expression: a host's class derived from it may
    // compute otherwise than its tree says.
    if (!calc) {
        reason = "no calculator";
    } else if (typeid(*calc) != typeid(Expression)) {
        reason = "the calculator is not an Expression";
    } else {
        // The constants the programs fold are the default environment's,
        // whatever the host has set while making the form.
        std::unique_ptr<Form> form;
        {
            vexa_platform::DefaultFloatScope scope;
            form = MakeForm(static_cast<Expression&>(*calc), params < 0 ? -1 : params, reason);
        }
        if (form)
            return std::unique_ptr<CompiledExpression>(new CompiledExpression(form.release()));
    }
    if (why)
        *why = "the expression cannot be compiled: " + reason;
    return nullptr;
}

int CompiledExpression::paramCount() const
{
    return m_form->params;
}

bool CompiledExpression::runsAsProgram() const
{
    return m_form->top().Runs(m_form->params);
}

namespace {

Space& SpaceFor(const Form* form, Space* space)
{
    if (&space->form != form)
        throw std::invalid_argument("vexa: a workspace of another compiled expression");
    return *space;
}

}  // namespace

Outcome CompiledExpression::Evaluate(const double* params, Workspace& ws, bool strict) const
{
    return ValueAt(SpaceFor(m_form, ws.m_space), params, strict);
}

Outcome CompiledExpression::Gradient(const double* params, double* grad, Workspace& ws) const
{
    return GradientAt(SpaceFor(m_form, ws.m_space), params, grad, vexa_platform::DefaultFloatEnvironment());
}

namespace {

// The forward-mode partial of order 2 or more under the default
// floating-point environment, as the gradient's.
StopReason ForwardAt(Space& s, const double* params, const int* at, int order, double& out)
{
    if (!s.form.top().Runs(s.form.params))
        return kTreeOnly;
    if (!s.forward)
        s.forward.reset(new ForwardScratch());
    if (vexa_platform::DefaultFloatEnvironment())
        return ForwardPartial(s.form, *s.forward, params, s.form.params, at, order, out);
    vexa_platform::DefaultFloatScope scope;
    return ForwardPartial(s.form, *s.forward, params, s.form.params, at, order, out);
}

// The outcome of a point whose value went but whose forward run stopped.
Outcome AfterForward(Space& s, StopReason why, const double* params)
{
    if (why != kTreeOnly)
        return AfterStop(s, why, true, params);
    const Outcome tree = TreeOutcome(s, params);
    return tree.ok() ? Failed(Failure::kNoGradient) : tree;
}

}  // namespace

Outcome CompiledExpression::Hessian(const double* params, double* H, Workspace& ws) const
{
    Space& s = SpaceFor(m_form, ws.m_space);
    const int n = m_form->params;
    const std::size_t size = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
    s.partials.resize(static_cast<std::size_t>(n));
    Outcome o = GradientAt(s, params, s.partials.data(), vexa_platform::DefaultFloatEnvironment());
    for (int i = 0; o.ok() && i < n; ++i) {
        for (int j = i; j < n; ++j) {
            const int at[2] = {i, j};
            double h = kNaN;
            const StopReason why = ForwardAt(s, params, at, 2, h);
            if (why != kGoes) {
                o = AfterForward(s, why, params);
                break;
            }
            H[i * n + j] = h;
            H[j * n + i] = h;
        }
    }
    if (!o.ok())
        std::fill(H, H + size, kNaN);
    return o;
}

Outcome CompiledExpression::PartialAt(const double* params, const int* at, int order, double* partial,
                                      Workspace& ws) const
{
    // The calculator checked the indices and the order when it was made.
    Space& s = *ws.m_space;
    if (order == 1) {
        // The gradient's machine code gives every partial for about the
        // cost of two evaluations, less than one forward run.
        if (s.partials.size() != static_cast<std::size_t>(m_form->params))
            s.partials.resize(static_cast<std::size_t>(m_form->params));
        const Outcome o = GradientAt(s, params, s.partials.data(), vexa_platform::DefaultFloatEnvironment());
        *partial = o.ok() ? s.partials[static_cast<std::size_t>(at[0])] : kNaN;
        return o;
    }
    double d = kNaN;
    const StopReason why = ForwardAt(s, params, at, order, d);
    if (why != kGoes)
        return AfterForward(s, why, params);
    *partial = d;
    return {d, Failure::kNone, 0};
}

Report CompiledExpression::EvaluateMany(std::size_t n, const Column* columns, double* results,
                                        const Options& options) const
{
    vexa_compiled::CheckPoints(n, m_form->params, columns, 1);
    return Split(*m_form, n, options, [&](Space& s, std::size_t begin, std::size_t end, Report& report) {
        EvaluateRange(s, begin, end, columns, results, options, report);
    });
}

Report CompiledExpression::EvaluateShapedMany(std::size_t n, const ShapedColumn* columns, int rows, int cols,
                                              double* results, const Options& options) const
{
    const int count = m_form->params;
    vexa_compiled::CheckShapedPoints(n, count, columns, rows, cols);
    // Numbers throughout are EvaluateMany's points, programs and strictness included.
    if (AllNumbers(columns, count, rows, cols)) {
        const std::vector<Column> scalar = ScalarColumns(columns, count);
        Report report = EvaluateMany(n, scalar.data(), results, options);
        AsWrongShape(report);
        return report;
    }
    return Split(*m_form, n, options, [&](Space& s, std::size_t begin, std::size_t end, Report& report) {
        ShapedRange(s, begin, end, columns, rows, cols, results, options, report);
    });
}

Report CompiledExpression::GradientMany(std::size_t n, const Column* columns, double* values, double* grads,
                                        const Options& options) const
{
    vexa_compiled::CheckPoints(n, m_form->params, columns, static_cast<std::size_t>(std::max(m_form->params, 1)));
    return Split(*m_form, n, options, [&](Space& s, std::size_t begin, std::size_t end, Report& report) {
        GradientRange(s, begin, end, columns, values, grads, options, report);
    });
}

Workspace::Workspace(const CompiledExpression& e) : m_space(new Space(*e.m_form)) {}

Workspace::~Workspace()
{
    delete m_space;
}

Report EvaluateMany(ICalculator* calc, int params, std::size_t n, const Column* columns, double* results,
                    const Options& options)
{
    vexa_compiled::CheckPoints(n, std::max(params, 0), columns, 1);
    if (std::unique_ptr<CompiledExpression> form = CompiledExpression::Make(calc, params))
        return form->EvaluateMany(n, columns, results, options);
    Report report;
    const int count = std::max(params, 0);
    std::vector<double> point(static_cast<std::size_t>(count));
    std::vector<VEXA_Data> values;
    for (std::size_t i = 0; i < n; ++i) {
        Gather(columns, count, i, point.data());
        const Outcome o = calc ? EvaluateCalculator(calc, values, point.data(), count) : Failed(Failure::kNull);
        results[i] = o.value;
        if (!o.ok())
            Note(report, options.max_reported, i, o);
    }
    return report;
}

Report EvaluateShapedMany(ICalculator* calc, int params, std::size_t n, const ShapedColumn* columns, int rows,
                          int cols, double* results, const Options& options)
{
    const int count = std::max(params, 0);
    vexa_compiled::CheckShapedPoints(n, count, columns, rows, cols);
    if (std::unique_ptr<CompiledExpression> form = CompiledExpression::Make(calc, params))
        return form->EvaluateShapedMany(n, columns, rows, cols, results, options);
    Report report;
    const std::size_t per = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    std::vector<VEXA_Data> values;
    for (std::size_t i = 0; i < n; ++i) {
        double* out = results + i * per;
        Outcome o = Failed(Failure::kNull);
        if (calc) {
            GatherShaped(columns, count, i, values);
            o = EvaluateShaped(calc, values, rows, cols, out);
        } else {
            std::fill(out, out + per, kNaN);
        }
        if (!o.ok())
            Note(report, options.max_reported, i, o);
    }
    return report;
}

}  // namespace vexa
