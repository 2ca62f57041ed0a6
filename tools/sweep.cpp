#include "tools/sweep.h"

#include <cmath>
#include <limits>
#include <ostream>

#include "tools/errors.h"
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
        if (!fits) {
            if (q.missing++ == 0) {
                q.first_problem = !r.ok ? (r.thrown ? DescribeThrownCode(r.code) : DescribeNullResult())
                                        : "the result changed shape to " + DescribeShape(r.value);
            }
        }
        const std::vector<double> e = fits ? Elements(r.value) : std::vector<double>();
        for (std::size_t k = 0; k < q.series.size(); ++k) q.series[k].ys.push_back(k < e.size() ? e[k] : kNaN);
    }
    return q;
}

std::string CsvField(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) return s;
    std::string q = "\"";
    for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

std::string Cell(double v) { return std::isnan(v) ? std::string("-") : FormatShort(v, 10); }

}  // namespace

std::vector<double> SweepPoints(double from, double to, int points) {
    std::vector<double> xs;
    if (points <= 1) {
        xs.push_back(from);
        return xs;
    }
    for (int i = 0; i < points; ++i) {
        // Interpolating from both ends keeps the last point exactly at `to`.
        const double t = static_cast<double>(i) / (points - 1);
        xs.push_back(i == points - 1 ? to : from * (1.0 - t) + to * t);
    }
    return xs;
}

bool RunSweep(ICalculator* calc, const std::vector<std::wstring>& params, const std::vector<VEXA_Data>& base,
              const SweepRequest& req, SweepResult& out, std::string& error) {
    out.xname = ToUtf8(params[req.index]);
    out.xs = SweepPoints(req.from, req.to, req.points);
    std::vector<vexa::CalcRef> derivs;
    for (int d : req.derivatives) {
        int code = 0;
        vexa::CalcRef h = DerivativeOf(calc, d, code);
        if (!h) {
            error = "cannot differentiate with respect to " + ToUtf8(params[d]) + ": " +
                    (code ? DescribeThrownCode(code) : std::string("the derivative tree grew beyond the library's size limit"));
            return false;
        }
        derivs.push_back(std::move(h));
    }
    std::vector<std::vector<EvalResult>> results(1 + derivs.size());
    std::vector<VEXA_Data> values = base;
    for (double x : out.xs) {
        values[req.index] = VEXA_Data(x);
        // A name listed twice takes two positions; both follow the sweep.
        for (std::size_t i = 0; i < params.size(); ++i)
            if (SameNoCase(params[i], params[req.index])) values[i] = VEXA_Data(x);
        results[0].push_back(EvaluateAt(calc, values));
        for (std::size_t k = 0; k < derivs.size(); ++k) results[k + 1].push_back(EvaluateAt(derivs[k].get(), values));
    }
    out.quantities.push_back(Collect("value", results[0]));
    for (std::size_t k = 0; k < derivs.size(); ++k)
        out.quantities.push_back(Collect("d/d" + ToUtf8(params[req.derivatives[k]]), results[k + 1]));
    return true;
}

void PrintTable(std::ostream& out, const SweepResult& r, int rows) {
    std::vector<std::string> heads{r.xname};
    std::vector<const std::vector<double>*> cols{&r.xs};
    for (const Quantity& q : r.quantities)
        for (const Series& s : q.series) {
            heads.push_back(s.label);
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
            for (const Series& s : q.series) {
                out << ',';
                if (!std::isnan(s.ys[i])) out << FormatExact(s.ys[i]);
            }
        out << '\n';
    }
}

std::vector<std::string> MissingNotes(const SweepResult& r) {
    std::vector<std::string> notes;
    for (const Quantity& q : r.quantities)
        if (q.missing)
            notes.push_back(q.title + ": no value at " + std::to_string(q.missing) + " of " +
                            std::to_string(r.xs.size()) + " points; first reason: " + q.first_problem);
    return notes;
}

}  // namespace vexa_cli
