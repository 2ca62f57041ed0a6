// The C interface's evaluation: one point or many, values or exact
// gradients, all through the compiled form.
#include <algorithm>
#include <cmath>
#include <limits>

#include "vexa/compiled/point_bounds.h"
#include "vexa/vexa_c.h"
#include "vexa/c/vexa_c_internal.h"

using vexa_c::Checked;
using vexa_c::Fail;
using vexa_c::Status;

namespace {

vexa::Options OptionsOf(const vexa_options* o)
{
    vexa::Options options;
    if (o) {
        options.strict = o->strict != 0;
        options.threads = o->threads;  // as vexa::Options: 0 or less, one per hardware thread
    }
    return options;
}

std::vector<vexa::Column> ColumnsOf(const vexa_expr& e, size_t n, const double* const* columns,
                                    const ptrdiff_t* strides)
{
    const std::size_t count = e.names.size();
    if (count > 0 && !columns)
        Fail(VEXA_E_ARGUMENT, "no parameter columns");
    std::vector<vexa::Column> out(count);
    for (std::size_t k = 0; k < count; ++k) {
        const std::ptrdiff_t stride = strides ? strides[k] : 1;
        if (!columns[k] && n > 0)
            Fail(VEXA_E_ARGUMENT, "no values for parameter " + std::to_string(k) + " (" + e.names[k] + ")");
        out[k] = {columns[k], stride};
    }
    return out;
}

void PointsNeeded(size_t n, const void* out)
{
    if (n > 0 && !out)
        Fail(VEXA_E_ARGUMENT, "no result buffer");
}

// A count or stride no buffer can match is the host's mistake, told as such
// before anything is written.
void WithinReach(size_t n, const std::vector<vexa::Column>& cols, std::size_t per_point)
{
    const std::string why =
        vexa_compiled::PointsBeyondReach(n, static_cast<int>(cols.size()), cols.data(), per_point);
    if (!why.empty())
        Fail(VEXA_E_ARGUMENT, why);
}

// The form, or the reason an expression without one cannot do what is asked.
const vexa::CompiledExpression& FormOf(const vexa_expr& e, const char* what)
{
    if (!e.form)
        Fail(VEXA_E_NO_GRADIENT, std::string("no ") + what + ": the expression could not be compiled");
    return *e.form;
}

// The first point of a report that threw, and when none of the reported ones
// did though some point did, the first such point found by evaluating again
// from the last reported one.
template <typename PointOutcome>
vexa::PointFailure FirstToTell(const vexa::Report& report, std::size_t n, PointOutcome at)
{
    const std::size_t thrown = report.by_kind[static_cast<int>(vexa::Failure::kThrown)];
    if (thrown == 0 || report.first.empty())
        return report.first.empty() ? vexa::PointFailure{0, vexa::Failure::kNull, 0} : report.first.front();
    for (const vexa::PointFailure& p : report.first) {
        if (p.failure == vexa::Failure::kThrown)
            return p;
    }
    for (std::size_t i = report.first.back().index + 1; i < n; ++i) {
        const vexa::Outcome o = at(i);
        if (o.failure == vexa::Failure::kThrown)
            return {i, o.failure, o.code};
    }
    return report.first.front();
}

bool Explainable(vexa::Failure f)
{
    return f == vexa::Failure::kThrown || f == vexa::Failure::kNull || f == vexa::Failure::kRefused;
}

// A point without a value, thrown as the C interface reports it, with the
// cause named where the library can find it.
[[noreturn]] void ThrowExplained(const vexa_expr& x, const double* params, const vexa::Outcome& o)
{
    vexa_c::Failure f = vexa_c::OutcomeFailure(o);
    if (Explainable(o.failure))
        vexa_c::Explain(x, params, f, true);
    throw f;
}

// explain(index, f) names the cause of a point's failure in f, where it can.
template <typename PointOutcome, typename Explainer>
void Tell(const vexa::Report& report, std::size_t n, vexa_report* out, PointOutcome at, Explainer explain)
{
    if (out) {
        out->failed = report.failed;
        out->thrown = report.by_kind[static_cast<int>(vexa::Failure::kThrown)];
    }
    if (report.ok())
        return;
    const vexa::PointFailure first = FirstToTell(report, n, at);
    vexa_c::Failure f = vexa_c::OutcomeFailure({0.0, first.failure, first.code});
    if (Explainable(first.failure))
        explain(first.index, f);
    f.message = std::to_string(report.failed) + " of " + std::to_string(n) + " points have no value; point " +
                std::to_string(first.index) + ": " + f.message;
    f.status = VEXA_E_POINTS;
    f.position = first.index > static_cast<std::size_t>(std::numeric_limits<int>::max())
                     ? std::numeric_limits<int>::max()
                     : static_cast<int>(first.index);
    throw f;
}

void NoExplanation(std::size_t, vexa_c::Failure&) {}

std::vector<double> PointOf(const std::vector<vexa::Column>& columns, std::size_t i)
{
    std::vector<double> point(columns.size());
    for (std::size_t k = 0; k < columns.size(); ++k)
        point[k] = columns[k].data[static_cast<std::ptrdiff_t>(i) * columns[k].stride];
    return point;
}

// The columns' explanation of point i, for Tell.
auto ExplainPoint(const vexa_expr& x, const std::vector<vexa::Column>& columns)
{
    return [&x, &columns](std::size_t i, vexa_c::Failure& f) {
        vexa_c::Explain(x, PointOf(columns, i).data(), f, false);
    };
}

std::vector<vexa::ShapedColumn> ShapedColumnsOf(const vexa_expr& e, size_t n, const double* const* columns,
                                                const ptrdiff_t* strides, const int* rows, const int* cols)
{
    const std::size_t count = e.names.size();
    if (count > 0 && !columns)
        Fail(VEXA_E_ARGUMENT, "no parameter columns");
    std::vector<vexa::ShapedColumn> out(count);
    for (std::size_t k = 0; k < count; ++k) {
        const int r = rows ? rows[k] : 1, c = cols ? cols[k] : 1;
        const std::string which = "parameter " + std::to_string(k) + " (" + e.names[k] + ")";
        const std::string why = vexa_compiled::ShapeRefused(r, c);
        if (!why.empty())
            Fail(VEXA_E_ARGUMENT, which + ": " + why);
        if (!columns[k] && n > 0)
            Fail(VEXA_E_ARGUMENT, "no values for " + which);
        // The shape was checked: the product fits.
        const std::ptrdiff_t stride = strides ? strides[k] : static_cast<std::ptrdiff_t>(r) * c;
        out[k] = {columns[k], stride, r, c};
    }
    return out;
}

std::vector<VEXA_Data> ValuesOf(const std::vector<vexa::ShapedColumn>& columns, std::size_t i)
{
    std::vector<VEXA_Data> values;
    for (const vexa::ShapedColumn& c : columns) {
        const double* at = c.data + static_cast<std::ptrdiff_t>(i) * c.stride;
        values.emplace_back(c.rows, c.cols);
        std::copy(at, at + static_cast<std::size_t>(c.rows) * static_cast<std::size_t>(c.cols),
                  values.back().getValue());
    }
    return values;
}

}  // namespace

extern "C" {

int vexa_eval_ex(vexa_expr* e, const double* params, double* result, const vexa_options* options, vexa_error* err)
{
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        PointsNeeded(1, result);
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        const bool strict = options && options->strict;
        vexa::Outcome o;
        if (x.form) {
            vexa_c::WorkspaceUse ws(x);
            o = x.form->Evaluate(params, ws.get(), strict);
        } else {
            // One point through the tree, exactly as a bulk call does it.
            std::vector<vexa::Column> columns;
            for (std::size_t k = 0; k < x.names.size(); ++k)
                columns.push_back(vexa::Column::Held(params + k));
            vexa_c::TreeTurn turn(x);
            const vexa::Report r = vexa::EvaluateMany(x.calc.get(), static_cast<int>(x.names.size()), 1,
                                                      columns.data(), result, OptionsOf(options));
            o = r.ok() ? vexa::Outcome{*result, vexa::Failure::kNone, 0}
                       : vexa::Outcome{*result, r.first.front().failure, r.first.front().code};
        }
        *result = o.value;
        if (o.ok())
            return;
        ThrowExplained(x, params, o);
    });
}

int vexa_eval(vexa_expr* e, const double* params, double* result, vexa_error* err)
{
    return vexa_eval_ex(e, params, result, nullptr, err);
}

int vexa_eval_many_ex(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                      double* results, const vexa_options* options, vexa_report* report, vexa_error* err)
{
    if (report)
        *report = {0, 0};
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        PointsNeeded(n, results);
        const std::vector<vexa::Column> cols = ColumnsOf(x, n, columns, strides);
        WithinReach(n, cols, 1);
        const vexa::Options opts = OptionsOf(options);
        if (!x.form) {
            vexa_c::TreeTurn turn(x);
            const vexa::Report r = vexa::EvaluateMany(x.calc.get(), static_cast<int>(cols.size()), n, cols.data(),
                                                      results, opts);
            Tell(r, n, report, [&](std::size_t) { return vexa::Outcome{0.0, vexa::Failure::kNull, 0}; },
                 NoExplanation);
            return;
        }
        const vexa::Report r = x.form->EvaluateMany(n, cols.data(), results, opts);
        Tell(r, n, report, [&](std::size_t i) {
            vexa_c::WorkspaceUse ws(x);
            return x.form->Evaluate(PointOf(cols, i).data(), ws.get(), opts.strict);
        }, ExplainPoint(x, cols));
    });
}

int vexa_eval_many(vexa_expr* e, size_t n, const double* const* columns, double* results, vexa_error* err)
{
    return vexa_eval_many_ex(e, n, columns, nullptr, results, nullptr, nullptr, err);
}

int vexa_eval_many_shaped(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                          const int* rows, const int* cols, int result_rows, int result_cols, double* results,
                          const vexa_options* options, vexa_report* report, vexa_error* err)
{
    if (report)
        *report = {0, 0};
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        const std::string refused = vexa_compiled::ShapeRefused(result_rows, result_cols);
        if (!refused.empty())
            Fail(VEXA_E_ARGUMENT, "the result: " + refused);
        PointsNeeded(n, results);
        const std::vector<vexa::ShapedColumn> shaped = ShapedColumnsOf(x, n, columns, strides, rows, cols);
        const std::string why = vexa_compiled::ShapedPointsBeyondReach(n, static_cast<int>(shaped.size()),
                                                                       shaped.data(), result_rows, result_cols);
        if (!why.empty())
            Fail(VEXA_E_ARGUMENT, why);
        const vexa::Options opts = OptionsOf(options);
        const int count = static_cast<int>(shaped.size());
        if (!x.form) {
            vexa_c::TreeTurn turn(x);
            const vexa::Report r = vexa::EvaluateShapedMany(x.calc.get(), count, n, shaped.data(), result_rows,
                                                            result_cols, results, opts);
            Tell(r, n, report, [&](std::size_t) { return vexa::Outcome{0.0, vexa::Failure::kNull, 0}; },
                 NoExplanation);
            return;
        }
        const vexa::Report r = x.form->EvaluateShapedMany(n, shaped.data(), result_rows, result_cols, results, opts);
        Tell(r, n, report, [&](std::size_t i) {
            // Point i again, alone on this thread.
            std::vector<vexa::ShapedColumn> at = shaped;
            for (vexa::ShapedColumn& c : at)
                c.data += static_cast<std::ptrdiff_t>(i) * c.stride;
            std::vector<double> out(static_cast<std::size_t>(result_rows) * static_cast<std::size_t>(result_cols));
            vexa::Options one = opts;
            one.threads = 1;
            const vexa::Report r1 = x.form->EvaluateShapedMany(1, at.data(), result_rows, result_cols, out.data(), one);
            return r1.ok() ? vexa::Outcome{out[0], vexa::Failure::kNone, 0}
                           : vexa::Outcome{out[0], r1.first.front().failure, r1.first.front().code};
        }, [&](std::size_t i, vexa_c::Failure& f) {
            const std::vector<VEXA_Data> values = ValuesOf(shaped, i);
            vexa_c::ExplainFree(x, values.data(), f, false);
        });
    });
}

int vexa_gradient(vexa_expr* e, const double* params, double* grad, vexa_error* err)
{
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        PointsNeeded(x.names.size(), grad);
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        const vexa::CompiledExpression& form = FormOf(x, "exact gradient");
        vexa_c::WorkspaceUse ws(x);
        const vexa::Outcome o = form.Gradient(params, grad, ws.get());
        if (o.ok())
            return;
        // A point without a value has no gradient either: told as vexa_eval tells it.
        ThrowExplained(x, params, o);
    });
}

int vexa_hessian(vexa_expr* e, const double* params, double* H, vexa_error* err)
{
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        PointsNeeded(x.names.size(), H);
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        const vexa::CompiledExpression& form = FormOf(x, "exact Hessian");
        vexa_c::WorkspaceUse ws(x);
        const vexa::Outcome o = form.Hessian(params, H, ws.get());
        if (!o.ok())
            ThrowExplained(x, params, o);
    });
}

int vexa_gradient_many(vexa_expr* e, size_t n, const double* const* columns, const ptrdiff_t* strides,
                       double* values, double* grads, const vexa_options* options, vexa_report* report,
                       vexa_error* err)
{
    if (report)
        *report = {0, 0};
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        if (!x.names.empty())
            PointsNeeded(n, grads);
        const std::vector<vexa::Column> cols = ColumnsOf(x, n, columns, strides);
        WithinReach(n, cols, std::max<std::size_t>(cols.size(), 1));
        const vexa::CompiledExpression& form = FormOf(x, "exact gradient");
        std::vector<double> own;
        if (!values) {
            own.resize(n);
            values = own.data();
        }
        const vexa::Report r = form.GradientMany(n, cols.data(), values, grads, OptionsOf(options));
        Tell(r, n, report, [&](std::size_t i) {
            vexa_c::WorkspaceUse ws(x);
            std::vector<double> grad(cols.size());
            return form.Gradient(PointOf(cols, i).data(), grad.data(), ws.get());
        }, ExplainPoint(x, cols));
    });
}

}  // extern "C"
