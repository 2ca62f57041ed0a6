#include "tools/sweep.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <ostream>

#include "tools/errors.h"
#include "tools/explain.h"
#include "tools/numbers.h"
#include "tools/values.h"
#include "tools/wide.h"

namespace vexa_cli {

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Labels of the elements of a value of the given shape.
std::vector<std::string> ElementLabels(const std::string& base, const VEXA_Data& shape) {
    int r = 0, c = 0;
    shape.getDataInfo(r, c);
    std::vector<std::string> labels;
    if (shape.getType() == DT_SCALAR) {
        labels.push_back(base);
    } else if (shape.getType() == DT_VECTOR) {
        for (int j = 0; j < c; ++j) labels.push_back(base + "[" + std::to_string(j) + "]");
    } else {
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < c; ++j) labels.push_back(base + "[" + std::to_string(i) + "," + std::to_string(j) + "]");
    }
    return labels;
}

// A quantity from point-by-point results of any shape.
Quantity Collect(const std::string& title, const std::vector<EvalResult>& results) {
    Quantity q;
    q.title = title;
    const VEXA_Data* shape = nullptr;
    for (const EvalResult& r : results) {
        if (r.ok) {
            shape = &r.value;
            break;
        }
    }
    if (shape) {
        for (const std::string& l : ElementLabels(title, *shape)) q.series.push_back({l, {}});
    } else {
        q.series.push_back({title, {}});
    }
    int sr = 0, sc = 0;
    if (shape) shape->getDataInfo(sr, sc);
    for (const EvalResult& r : results) {
        int rr = 0, rc = 0;
        if (r.ok) r.value.getDataInfo(rr, rc);
        const bool fits = r.ok && shape && r.value.getType() == shape->getType() && rr == sr && rc == sc;
        if (!fits && q.missing++ == 0)
            q.first_problem = !r.ok ? (r.thrown ? DescribeThrownCode(r.code) : DescribeNullResult())
                                    : "the result changed shape to " + DescribeShape(r.value);
        const std::vector<double> e = fits ? Elements(r.value) : std::vector<double>();
        for (std::size_t k = 0; k < q.series.size(); ++k) q.series[k].ys.push_back(k < e.size() ? e[k] : kNaN);
    }
    return q;
}

// A scalar quantity from bulk results.
Quantity Scalars(const std::string& title, std::vector<double> ys) {
    Quantity q;
    q.title = title;
    q.missing = static_cast<int>(std::count_if(ys.begin(), ys.end(), [](double y) { return std::isnan(y); }));
    q.series.push_back({title, std::move(ys)});
    return q;
}

std::string FailureText(const vexa::PointFailure& f) {
    switch (f.failure) {
    case vexa::Failure::kThrown: return DescribeThrownCode(f.code);
    case vexa::Failure::kNull: return DescribeNullResult();
    case vexa::Failure::kNotScalar: return "the result is not a scalar";
    case vexa::Failure::kRefused: return "a function refused its arguments";
    case vexa::Failure::kNoGradient: return "the exact derivative cannot follow this point";
    case vexa::Failure::kWrongShape: return "the result has another shape than the one asked for";
    default: return "no value";
    }
}

// The sweep's evaluation at one point, where the values hold it.
class Points {
public:
    Points(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params,
           const std::vector<VEXA_Data>& base, int index)
        : m_calc(calc), m_text(text), m_params(params), m_values(base), m_index(index) {}

    EvalResult At(ICalculator* calc, double x) {
        // A name listed twice takes two positions; both follow the sweep.
        for (std::size_t i = 0; i < m_params.size(); ++i)
            if (SameNoCase(m_params[i], m_params[static_cast<std::size_t>(m_index)])) m_values[i] = VEXA_Data(x);
        return EvaluateAt(calc, m_values);
    }

    // Why the expression has no proper value at x, as plainly as the tree tells.
    std::string Why(double x, bool* dropped = nullptr) {
        const EvalResult r = At(m_calc, x);
        const std::string at = " (at " + ToUtf8(m_params[static_cast<std::size_t>(m_index)]) + " = " +
                               FormatExact(x) + ")";
        if (dropped) {
            const std::vector<Culprit> terms = DroppedTerms(m_calc, m_text, m_params, m_values);
            *dropped = !terms.empty();
            return terms.empty() ? std::string() : terms[0].message + at;
        }
        Culprit c = r.ok ? ExplainNaN(m_calc, m_text, m_params) : ExplainFailure(m_calc, m_text, m_params, m_values);
        if (c.message.empty())
            c.message = r.thrown ? DescribeThrownCode(r.code) : !r.ok ? DescribeNullResult() : "the value is NaN";
        return c.message + at;
    }

    // The library's diagnosis of calc at x (the expression, or a derivative
    // calculator, which has no text of its own); empty when it blames nothing.
    std::string Diagnosed(ICalculator* calc, bool ownText, double x) {
        At(calc, x);
        const Culprit c = ExplainFailure(calc, ownText ? m_text : std::wstring(), m_params, m_values);
        return c.message.empty() ? std::string()
                                 : c.message + " (at " + ToUtf8(m_params[static_cast<std::size_t>(m_index)]) +
                                       " = " + FormatExact(x) + ")";
    }

    // The point of the latest At.
    const std::vector<VEXA_Data>& Values() const { return m_values; }

    // Columns for the bulk evaluation: the swept positions read xs, the others their held value.
    std::vector<vexa::Column> Columns(const std::vector<double>& xs) {
        m_held.clear();
        for (const VEXA_Data& v : m_values) m_held.push_back(v.getValue()[0]);
        std::vector<vexa::Column> cols;
        for (std::size_t i = 0; i < m_params.size(); ++i)
            cols.push_back(SameNoCase(m_params[i], m_params[static_cast<std::size_t>(m_index)])
                               ? vexa::Column::Values(xs.data())
                               : vexa::Column::Held(&m_held[i]));
        return cols;
    }

private:
    ICalculator* m_calc;
    const std::wstring& m_text;
    const std::vector<std::wstring>& m_params;
    std::vector<VEXA_Data> m_values;
    int m_index;
    std::vector<double> m_held;
};

// The bulk sweep: values (and their strict twin), exact first derivatives,
// and the derivative calculators' values.
void SweepInBulk(ICalculator* calc, const std::vector<std::wstring>& params, const SweepRequest& req,
                 std::vector<HostDerivative>& hosts, Points& points, SweepResult& out) {
    const std::size_t n = out.xs.size(), np = params.size();
    const std::vector<vexa::Column> cols = points.Columns(out.xs);
    std::string why;
    std::unique_ptr<vexa::CompiledExpression> form = vexa::CompiledExpression::Make(calc, static_cast<int>(np), &why);
    vexa::Options options;
    options.strict = req.strict;
    std::vector<double> ys(n);
    // Why a point failed comes from the tree below, in the user's words.
    if (form)
        form->EvaluateMany(n, cols.data(), ys.data(), options);
    else
        vexa::EvaluateMany(calc, static_cast<int>(np), n, cols.data(), ys.data(), options);
    Quantity value = Scalars("value", ys);
    for (std::size_t i = 0; i < n && value.missing; ++i) {
        if (!std::isnan(ys[i])) continue;
        // Strictly, a point whose ordinary value stands lost it to a refused call.
        bool dropped = false;
        const std::string refused = req.strict ? points.Why(out.xs[i], &dropped) : std::string();
        value.first_problem = dropped ? "a function refused its arguments: " + refused : points.Why(out.xs[i]);
        break;
    }
    if (!req.strict) {
        // What the arithmetic absorbed: a refused call whose term was dropped.
        std::vector<double> strict(n);
        options.strict = true;
        if (form) form->EvaluateMany(n, cols.data(), strict.data(), options);
        std::size_t count = 0, first = n;
        for (std::size_t i = 0; form && i < n; ++i)
            if (std::isnan(strict[i]) && !std::isnan(ys[i])) {
                ++count;
                if (first == n) first = i;
            }
        if (count) {
            bool dropped = false;
            const std::string why = points.Why(out.xs[first], &dropped);
            out.notes.push_back("at " + std::to_string(count) + " of " + std::to_string(n) +
                                " points a function refused its arguments and its term was dropped" +
                                (dropped ? ", e.g. " + why : std::string()) +
                                "; --strict leaves those points without a value");
        }
    }
    out.quantities.push_back(std::move(value));

    std::vector<double> grads;
    vexa::Report gradReport;
    bool exact = false;
    for (const DerivativeRequest& d : req.derivatives) exact = exact || d.order == 1;
    if (exact && form && form->runsAsProgram()) {
        std::vector<double> values(n);
        grads.assign(n * np, 0.0);
        gradReport = form->GradientMany(n, cols.data(), values.data(), grads.data());
    } else if (exact) {
        out.notes.push_back("no exact derivative: " +
                            (form ? std::string("the expression does not run as a program") : why));
    }
    for (std::size_t k = 0; k < req.derivatives.size(); ++k) {
        const DerivativeRequest& d = req.derivatives[k];
        const std::string label = DerivativeLabel(params, d);
        if (d.order == 1 && !grads.empty()) {
            // One name listed twice is one quantity: its partials add up.
            std::vector<double> dy(n, 0.0);
            for (std::size_t i = 0; i < n; ++i)
                for (std::size_t p = 0; p < np; ++p)
                    if (SameNoCase(params[p], params[static_cast<std::size_t>(d.index)])) dy[i] += grads[i * np + p];
            Quantity q = Scalars(label, std::move(dy));
            q.panel = static_cast<int>(k) + 1;
            q.wrt = ToUtf8(params[static_cast<std::size_t>(d.index)]);
            q.order = 1;
            if (q.missing && !gradReport.first.empty()) {
                const vexa::PointFailure& f = gradReport.first[0];
                const std::string cause =
                    f.failure == vexa::Failure::kNoGradient ? std::string() : points.Diagnosed(calc, true, out.xs[f.index]);
                q.first_problem = FailureText(f) + (cause.empty() ? "" : ": " + cause);
            }
            out.quantities.push_back(std::move(q));
        }
        std::vector<double> hy(n);
        const vexa::Report hr =
            vexa::EvaluateMany(hosts[k].calc.get(), static_cast<int>(np), n, cols.data(), hy.data());
        Quantity q = Scalars("calc " + label, std::move(hy));
        if (q.missing && !hr.first.empty()) {
            const std::string cause = points.Diagnosed(hosts[k].calc.get(), false, out.xs[hr.first[0].index]);
            q.first_problem = cause.empty() ? FailureText(hr.first[0]) : cause;
        }
        q.host = true;
        q.mark = hosts[k].mark;
        q.panel = static_cast<int>(k) + 1;
        q.wrt = ToUtf8(params[static_cast<std::size_t>(d.index)]);
        q.order = d.order;
        q.series[0].dashed = true;
        out.quantities.push_back(std::move(q));
    }
}

// Point by point, for values of any shape; no exact derivative.
void SweepPointByPoint(ICalculator* calc, const std::vector<std::wstring>& params, const std::wstring& text,
                       const SweepRequest& req, std::vector<HostDerivative>& hosts, Points& points,
                       SweepResult& out) {
    std::vector<std::vector<EvalResult>> results(1 + hosts.size());
    for (double x : out.xs) {
        results[0].push_back(points.At(calc, x));
        if (req.strict && results[0].back().ok && !DroppedTerms(calc, text, params, points.Values()).empty()) results[0].back().ok = false;
        for (std::size_t k = 0; k < hosts.size(); ++k) results[k + 1].push_back(points.At(hosts[k].calc.get(), x));
    }
    out.quantities.push_back(Collect("value", results[0]));
    for (std::size_t k = 0; k < hosts.size(); ++k) {
        Quantity q = Collect("calc " + DerivativeLabel(params, req.derivatives[k]), results[k + 1]);
        q.host = true;
        q.mark = hosts[k].mark;
        q.panel = static_cast<int>(k) + 1;
        q.wrt = ToUtf8(params[static_cast<std::size_t>(req.derivatives[k].index)]);
        q.order = req.derivatives[k].order;
        for (Series& s : q.series) s.dashed = true;
        out.quantities.push_back(std::move(q));
    }
    if (!hosts.empty()) out.notes.push_back("no exact derivative: it needs scalar values for every parameter");
}

std::string CsvField(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) return s;
    std::string q = "\"";
    for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

std::string Cell(double v) { return std::isnan(v) ? std::string("-") : FormatShort(v, 10); }

}  // namespace

std::vector<double> SweepPoints(double from, double to, int points, bool logarithmic) {
    std::vector<double> xs;
    if (points <= 1) {
        xs.push_back(from);
        return xs;
    }
    const int last = points - 1;
    if (logarithmic) {
        // Evenly spaced exponents; the ends are the values given.
        const double decades = std::log10(to / from);
        for (int i = 0; i <= last; ++i)
            xs.push_back(i == 0 ? from : i == last ? to : from * std::pow(10.0, (i * decades) / last));
        return xs;
    }
    const double span = to - from;
    for (int i = 0; i <= last; ++i) {
        double x;
        if (!std::isfinite(span)) {
            // Beyond the doubles' range the span overflows; interpolating
            // does not.
            const double t = static_cast<double>(i) / last;
            x = from * (1.0 - t) + to * t;
        } else if (2 * i <= last) {
            // From the nearer end: i * span is exact for the usual ranges,
            // and -1 + (2 * 3) / 6 is 0 where -1 * (2/3) + 2 * (1/3) is not.
            x = from + (i * span) / last;
        } else {
            x = to - ((last - i) * span) / last;
        }
        xs.push_back(i == 0 ? from : i == last ? to : x);
    }
    // 0 exactly where it is a grid point: every singularity and IF branch
    // at 0 is then met, not missed by a rounding error.
    if ((from < 0 && to > 0) || (from > 0 && to < 0)) {
        const double k = std::round(-from / span * last);
        const std::size_t at = static_cast<std::size_t>(k);
        if (k > 0 && k < last && std::fabs(xs[at]) <= 1e-9 * std::fabs(span) / last) xs[at] = 0.0;
    }
    return xs;
}

bool EvaluateSweep(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params,
                   const std::vector<VEXA_Data>& base, SweepRequest req, SweepResult& out, std::string& error) {
    out.xname = ToUtf8(params[static_cast<std::size_t>(req.index)]);
    out.xs = SweepPoints(req.from, req.to, req.points, req.logarithmic);
    // "-d --wrt TIME" asks twice for one derivative.
    std::vector<DerivativeRequest> unique;
    for (const DerivativeRequest& d : req.derivatives)
        if (std::find(unique.begin(), unique.end(), d) == unique.end()) unique.push_back(d);
    req.derivatives = unique;
    std::vector<HostDerivative> hosts;
    for (const DerivativeRequest& d : req.derivatives) {
        hosts.push_back(HostDerivativeOf(calc, params, d));
        if (!hosts.back().calc) {
            error = hosts.back().error;
            return false;
        }
    }
    Points points(calc, text, params, base, req.index);
    if (AllScalar(base))
        SweepInBulk(calc, params, req, hosts, points, out);
    else
        SweepPointByPoint(calc, params, text, req, hosts, points, out);
    return true;
}

void PrintTable(std::ostream& out, const SweepResult& r, int rows) {
    std::vector<std::string> heads{r.xname};
    std::vector<const std::vector<double>*> cols{&r.xs};
    for (const Quantity& q : r.quantities)
        for (const Series& s : q.series) {
            heads.push_back(s.label + (q.host && !q.mark.empty() ? "*" : ""));
            cols.push_back(&s.ys);
        }
    std::vector<std::size_t> width;
    for (const std::string& h : heads) width.push_back(std::max<std::size_t>(h.size(), 16) + 2);
    auto pad = [](const std::string& s, std::size_t w) { return std::string(w > s.size() ? w - s.size() : 0, ' ') + s; };
    for (std::size_t c = 0; c < heads.size(); ++c) out << pad(heads[c], width[c]);
    out << '\n';
    const std::size_t n = r.xs.size();
    std::vector<std::size_t> pick;
    if (rows <= 0 || static_cast<std::size_t>(rows) >= n) {
        for (std::size_t i = 0; i < n; ++i) pick.push_back(i);
    } else {
        for (int i = 0; i < rows; ++i) pick.push_back(rows == 1 ? 0 : (n - 1) * i / (rows - 1));
    }
    for (std::size_t i : pick) {
        for (std::size_t c = 0; c < cols.size(); ++c) out << pad(Cell((*cols[c])[i]), width[c]);
        out << '\n';
    }
}

void WriteCsv(std::ostream& out, const SweepResult& r) {
    out << CsvField(r.xname);
    for (const Quantity& q : r.quantities)
        for (const Series& s : q.series) out << ',' << CsvField(s.label);
    out << '\n';
    for (std::size_t i = 0; i < r.xs.size(); ++i) {
        out << FormatExact(r.xs[i]);
        for (const Quantity& q : r.quantities)
            for (const Series& s : q.series) out << ',' << (std::isnan(s.ys[i]) ? "NaN" : FormatExact(s.ys[i]));
        out << '\n';
    }
}

std::vector<std::string> SweepNotes(const SweepResult& r) {
    std::vector<std::string> notes;
    for (const Quantity& q : r.quantities)
        if (q.missing)
            notes.push_back(q.title + ": no value (NaN) at " + std::to_string(q.missing) + " of " +
                            std::to_string(r.xs.size()) + " points; first reason: " + q.first_problem);
    for (const Quantity& q : r.quantities)
        if (q.host)
            notes.push_back(q.title + (q.mark.empty() ? "" : "*") +
                            ": what the library's derivative calculator gives a host; " +
                            (q.mark.empty() ? std::string("symbolic here") : "not to be trusted here: " + q.mark));
    notes.insert(notes.end(), r.notes.begin(), r.notes.end());
    return notes;
}

}  // namespace vexa_cli
