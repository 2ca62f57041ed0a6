#include "tools/commands.h"

#include <cmath>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

#include "tools/call_forms.h"
#include "tools/check.h"
#include "tools/derivatives.h"
#include "tools/dot_tree.h"
#include "tools/errors.h"
#include "tools/explain.h"
#include "tools/numbers.h"
#include "tools/session.h"
#include "tools/svg_plot.h"
#include "tools/sweep.h"
#include "tools/values.h"
#include "tools/wide.h"

namespace vexa_cli {

namespace {

void Error(const std::string& msg) {
    std::cerr << "vexa: error: " << msg;
    if (msg.empty() || msg.back() != '\n') std::cerr << '\n';
}

std::optional<std::wstring> WideList(const std::optional<std::string>& list) {
    if (!list) return std::nullopt;
    return ToWide(*list);
}

// Parses the expression, printing why when it fails.
bool Load(const ExprArgs& a, Parsed& p, int& exitCode) {
    p = ParseText(ToWide(a.expression), WideList(a.list));
    if (p.status == ParseStatus::Ok) return true;
    Error(DescribeParseFailure(p));
    exitCode = p.status == ParseStatus::ListRejected ? kExitList : kExitSyntax;
    return false;
}

bool LoadAssignments(const std::vector<std::string>& args, std::vector<Assignment>& out) {
    for (const std::string& s : args) {
        Assignment a;
        std::string msg;
        if (!ParseAssignment(s, a, msg)) {
            Error(msg);
            return false;
        }
        // Names are matched without regard to case: m=2 and M=5 both name
        // one parameter, and neither value may silently win.
        for (const Assignment& earlier : out) {
            if (SameNoCase(earlier.name, a.name)) {
                Error("the parameter '" + ToUtf8(a.name) + "' is given twice ('" + earlier.source + "' and '" +
                      a.source + "'; names are matched without regard to case)");
                return false;
            }
        }
        out.push_back(std::move(a));
    }
    return true;
}

void NoteUnused(const std::vector<std::string>& unused, const std::vector<std::wstring>& params) {
    for (const std::string& n : unused)
        std::cerr << "vexa: note: '" << n << "' is not a parameter of this expression and is ignored (parameters: "
                  << JoinNames(params) << ")\n";
}

// Values for the parameters in their order; reports a missing or malformed
// value and notes values given for names the expression does not use.
bool BindOrReport(const std::vector<std::wstring>& params, const std::vector<Assignment>& given,
                  std::vector<VEXA_Data>& values) {
    std::vector<std::string> unused;
    std::string msg;
    if (!BindValues(params, given, values, msg, &unused)) {
        Error(msg);
        return false;
    }
    NoteUnused(unused, params);
    return true;
}

// Parameter index of a name given on the command line, or an error message.
bool ResolveParam(const std::string& name, const std::vector<std::wstring>& params, int& index) {
    index = FindParam(params, ToWide(name));
    if (index >= 0) return true;
    Error("'" + name + "' is not a parameter of this expression; its parameters are: " + JoinNames(params));
    return false;
}

std::string FixedValuesText(const std::vector<std::wstring>& params, const std::vector<VEXA_Data>& values, int skip) {
    std::string s;
    for (std::size_t i = 0; i < params.size(); ++i) {
        if (static_cast<int>(i) == skip || SameNoCase(params[i], params[skip < 0 ? 0 : skip])) continue;
        s += (s.empty() ? "" : ", ") + ToUtf8(params[i]) + " = " + FormatValue(values[i]);
    }
    return s;
}

}  // namespace

bool WriteFileText(const std::string& path, const std::string& text, std::string& error) {
    if (path == "-") {
        std::cout << text;
        return true;
    }
    std::ofstream f(path, std::ios::binary);
    if (f) f << text;
    if (!f) {
        error = "cannot write '" + path + "'";
        return false;
    }
    return true;
}

namespace {

// The library's review of the text: what it reads differently from what was
// probably meant. Warnings go to standard error.
void PrintWarnings(const Parsed& p) {
    for (const vexa::TextWarning& w : Review(p))
        std::cerr << "vexa: warning: " << DescribeWarning(w, p.text, p.list);
}

std::string WithCaret(const Culprit& c, const std::wstring& text) {
    return c.position < 0 ? c.message : c.message + "\n" + CaretBlock(text, c.position, c.length);
}

bool ResolveDerivatives(const std::vector<std::string>& names, const std::vector<std::wstring>& params,
                        std::vector<DerivativeRequest>& out) {
    for (const std::string& n : names) {
        DerivativeRequest d;
        std::string msg;
        if (!ParseDerivativeRequest(n, params, d, msg)) {
            Error(msg);
            return false;
        }
        out.push_back(d);
    }
    return true;
}

// The value's troubles that evaluation lets pass: a NaN, and terms dropped
// because a function refused its arguments. Warnings, or errors when strict.
bool CheckValue(const Parsed& p, const std::vector<VEXA_Data>& values, const EvalResult& r, bool strict) {
    std::vector<Culprit> problems;
    for (double v : Elements(r.value))
        if (std::isnan(v)) {
            Culprit c = ExplainNaN(p.calc.get(), p.text, p.params);
            c.message = "the value is not a number (NaN)" + (c.message.empty() ? "" : ": " + c.message);
            problems.push_back(c);
            break;
        }
    for (Culprit c : DroppedTerms(p.calc.get(), p.text, p.params, values)) {
        c.message = "a term was dropped from the value: " + c.message +
                    "; the arithmetic leaves a term without a value out of a sum";
        problems.push_back(c);
    }
    for (const Culprit& c : problems)
        std::cerr << "vexa: " << (strict ? "error: " : "warning: ") << WithCaret(c, p.text) << '\n';
    if (!problems.empty() && !strict)
        std::cerr << "vexa: note: --strict makes this an error (as vexa::Options::strict does for hosts)\n";
    return problems.empty() || !strict;
}

}  // namespace

int RunEval(const ExprArgs& a, const std::vector<std::string>& derivatives) {
    std::vector<Assignment> given;
    if (!LoadAssignments(a.assignments, given)) return kExitUsage;
    Parsed p;
    int rc = kExitOk;
    if (!Load(a, p, rc)) return rc;
    PrintWarnings(p);
    std::vector<DerivativeRequest> requests;
    if (!ResolveDerivatives(derivatives, p.params, requests)) return kExitUsage;
    std::vector<VEXA_Data> values;
    if (!BindOrReport(p.params, given, values)) return kExitUsage;
    std::cout << "parameters: " << JoinNames(p.params) << '\n';
    for (std::size_t i = 0; i < p.params.size(); ++i)
        std::cout << "  " << ToUtf8(p.params[i]) << " = " << FormatValue(values[i]) << '\n';
    EvalResult r = EvaluateAt(p.calc.get(), values);
    if (!r.ok) {
        Culprit c = ExplainFailure(p.calc.get(), p.text, p.params, values);
        if (c.message.empty()) c.message = r.thrown ? DescribeThrownCode(r.code) : DescribeNullResult();
        else if (!r.thrown) c.message = "null result: " + c.message;
        else c.message += " (code " + std::to_string(r.code) + ")";
        Error("cannot evaluate '" + a.expression + "': " + WithCaret(c, p.text));
        return kExitEval;
    }
    auto show = [](const std::string& label, const VEXA_Data& v) {
        std::cout << label;
        if (v.getType() != DT_SCALAR) std::cout << " (" << DescribeShape(v) << ")";
        std::cout << " = " << FormatValue(v) << '\n';
    };
    show("value", r.value);
    if (!CheckValue(p, values, r, a.strict)) return kExitEval;

    // The exact first derivatives come from the compiled form's gradient.
    std::vector<double> point, grad;
    vexa::Outcome exact{0, vexa::Failure::kNoGradient, 0};
    std::string noExact = "it needs scalar values for every parameter";
    if (AllScalar(values) && !requests.empty()) {
        std::string why;
        auto form = vexa::CompiledExpression::Make(p.calc.get(), static_cast<int>(values.size()), &why);
        if (form) {
            for (const VEXA_Data& v : values) point.push_back(v.getValue()[0]);
            grad.assign(values.size(), 0.0);
            vexa::Workspace ws(*form);
            exact = form->Gradient(point.data(), grad.data(), ws);
            noExact = exact.failure == vexa::Failure::kNoGradient ? "part of the expression runs only as a tree"
                                                                  : "not defined here";
        } else {
            noExact = why;
        }
    }
    for (const DerivativeRequest& d : requests) {
        const std::string label = DerivativeLabel(p.params, d);
        HostDerivative h = HostDerivativeOf(p.calc.get(), p.params, d);
        if (!h.calc) {
            Error(label + ": " + h.error);
            return kExitEval;
        }
        EvalResult dr = EvaluateAt(h.calc.get(), values);
        const std::string host = dr.ok ? FormatValue(dr.value)
                                       : "no value (" + (dr.thrown ? DescribeThrownCode(dr.code) : DescribeNullResult()) + ")";
        const std::string note = h.mark.empty() ? "(symbolic)" : "* not to be trusted here: " + h.mark;
        // Parameters whose names differ only in case are one to the user:
        // its partial is the sum over them (over every tuple of them, above
        // the first order).
        std::vector<int> same;
        for (std::size_t i = 0; i < p.params.size(); ++i)
            if (SameNoCase(p.params[i], p.params[static_cast<std::size_t>(d.index)])) same.push_back(static_cast<int>(i));
        double sum = 0;
        std::string whyNot = noExact;
        bool exactOk = d.order == 1 && exact.ok();
        if (exactOk) {
            for (int i : same) sum += grad[static_cast<std::size_t>(i)];
        } else if (d.order > 1 && AllScalar(values)) {
            // Higher orders nest the exact derivative calculators.
            std::function<bool(ICalculator*, int)> add = [&](ICalculator* c, int left) {
                if (left == 0) {
                    EvalResult e = EvaluateAt(c, values);
                    if (!e.ok || e.value.getType() != DT_SCALAR) return false;
                    sum += e.value.getValue()[0];
                    return true;
                }
                for (int i : same) {
                    std::string why;
                    vexa::CalcRef next(vexa::ExactDerivative(c, i, &why));
                    if (!next) {
                        whyNot = why.empty() ? "exact values go up to the 4th order" : why;
                        return false;
                    }
                    if (!add(next.get(), left - 1)) return false;
                }
                return true;
            };
            whyNot = "not defined here";
            exactOk = add(p.calc.get(), d.order);
        }
        if (exactOk) {
            std::cout << label << " = " << FormatExact(sum) << '\n'
                      << "  derivative calculator: " << host << "  " << note << '\n';
        } else {
            if (!dr.ok) {
                Error(label + " has no value here: " + host);
                return kExitEval;
            }
            show(label, dr.value);
            std::cout << "  from the derivative calculator " << note << "; no exact value: " << whyNot << '\n';
        }
    }
    return kExitOk;
}

int RunSweep(const SweepArgs& a) {
    std::vector<Assignment> given;
    if (!LoadAssignments(a.expr.assignments, given)) return kExitUsage;
    auto from = ParseLanguageNumber(a.from), to = ParseLanguageNumber(a.to);
    if (!from || !to || !std::isfinite(*from) || !std::isfinite(*to)) {
        Error("--from and --to must be finite numbers such as 0, -1.5, 2E-3 or PI/2 (got '" + a.from + "' and '" +
              a.to + "')");
        return kExitUsage;
    }
    PlotUnits units;
    units.ylabel = a.ylabel;
    units.yunit = a.yunit;
    units.xunit = a.xunit;
    if (!a.yscale.empty()) {
        auto scale = ParseLanguageNumber(a.yscale);
        if (!scale || !std::isfinite(*scale) || *scale == 0) {
            Error("--yscale must be a finite number other than 0, such as 1E3 or RTOD (got '" + a.yscale + "')");
            return kExitUsage;
        }
        units.yscale = *scale;
    }
    units.xlog = a.xlog;
    units.ylog = a.ylog;
    if (a.xlog && !((*from > 0 && *to > 0) || (*from < 0 && *to < 0))) {
        Error("--log-x needs --from and --to of one sign, neither 0 (got " + a.from + " and " + a.to + ")");
        return kExitUsage;
    }
    if (a.points < 1 || a.points > 1000000) {
        Error("--points must be between 1 and 1000000");
        return kExitUsage;
    }
    Parsed p;
    int rc = kExitOk;
    if (!Load(a.expr, p, rc)) return rc;
    PrintWarnings(p);
    SweepRequest req;
    req.from = *from;
    req.to = *to;
    req.points = a.points;
    req.strict = a.expr.strict;
    req.logarithmic = a.xlog;
    if (a.over.empty()) {
        if (p.params.size() != 1) {
            Error("say which parameter to sweep with --over NAME; the parameters are: " + JoinNames(p.params));
            return kExitUsage;
        }
        req.index = 0;
    } else if (!ResolveParam(a.over, p.params, req.index)) {
        return kExitUsage;
    }
    if (a.derivative) req.derivatives.push_back({req.index, 1});
    if (!ResolveDerivatives(a.wrt, p.params, req.derivatives)) return kExitUsage;
    // The swept parameter needs no value of its own.
    std::vector<Assignment> withX = given;
    Assignment x;
    x.name = p.params[req.index];
    x.value = VEXA_Data(req.from);
    withX.insert(withX.begin(), x);
    std::vector<VEXA_Data> values;
    if (!BindOrReport(p.params, withX, values)) return kExitUsage;
    std::string msg;
    SweepResult result;
    if (!vexa_cli::EvaluateSweep(p.calc.get(), p.text, p.params, values, req, result, msg)) {
        Error(msg);
        return kExitEval;
    }
    for (const std::string& n : SweepNotes(result)) std::cerr << "vexa: note: " << n << '\n';
    if (!a.no_table && a.csv != "-") {
        std::cout << "parameters: " << JoinNames(p.params) << '\n';
        const std::string fixed = FixedValuesText(p.params, values, req.index);
        if (!fixed.empty()) std::cout << "fixed: " << fixed << '\n';
        PrintTable(std::cout, result);
    }
    if (!a.csv.empty()) {
        std::ostringstream csv;
        WriteCsv(csv, result);
        if (!WriteFileText(a.csv, csv.str(), msg)) {
            Error(msg);
            return kExitIo;
        }
        if (a.csv != "-") std::cerr << "vexa: wrote " << a.csv << '\n';
    }
    if (!a.svg.empty()) {
        if (!p.can_plot)
            std::cerr << "vexa: note: the library marks expressions calling IMPACT or BISTOP as not plottable "
                         "(canPlot); this plot evaluates it at each point like any other\n";
        const std::string fixed = FixedValuesText(p.params, values, req.index);
        PlotPage page = PlotOfSweep(result, a.title.empty() ? a.expr.expression : a.title,
                                    (a.title.empty() ? std::string() : a.expr.expression + (fixed.empty() ? "" : "   ")) + fixed,
                                    units);
        if (!WriteFileText(a.svg, RenderSvg(page), msg)) {
            Error(msg);
            return kExitIo;
        }
        std::cerr << "vexa: wrote " << a.svg << '\n';
    }
    return kExitOk;
}

namespace {

std::string Size(std::uint64_t bytes) {
    char buf[64];
    if (bytes >= (1ull << 30)) std::snprintf(buf, sizeof buf, "%.1f GB", bytes / 1e9);
    else if (bytes >= (1ull << 20)) std::snprintf(buf, sizeof buf, "%.1f MB", bytes / 1e6);
    else std::snprintf(buf, sizeof buf, "%llu bytes", static_cast<unsigned long long>(bytes));
    return buf;
}

}  // namespace

int RunTree(const ExprArgs& a, const std::vector<std::string>& derivatives, const std::string& dotPath, bool dump,
            bool force) {
    Parsed p;
    int rc = kExitOk;
    if (!Load(a, p, rc)) return rc;
    PrintWarnings(p);
    std::vector<DerivativeRequest> requests;
    if (!ResolveDerivatives(derivatives, p.params, requests)) return kExitUsage;
    struct Tree {
        std::string title;
        vexa::CalcRef calc;
    };
    std::vector<Tree> trees;
    trees.push_back({"expression: " + a.expression, vexa::CalcRef::Share(p.calc.get())});
    for (const DerivativeRequest& d : requests) {
        HostDerivative h = HostDerivativeOf(p.calc.get(), p.params, d);
        if (!h.calc) {
            Error(DerivativeLabel(p.params, d) + ": " + h.error);
            return kExitEval;
        }
        const std::string name = ToUtf8(p.params[static_cast<std::size_t>(d.index)]);
        trees.push_back({(d.order == 1 ? "derivative" : DerivativeLabel(p.params, d) + ", the derivative") +
                             " with respect to " + name + (d.order > 1 ? " taken " + std::to_string(d.order) + " times" : ""),
                         std::move(h.calc)});
    }
    // The dump indents each line ten blanks a level, so deep derivative trees
    // dump to gigabytes, and the library builds the whole dump in memory; the
    // outline (two blanks a level) is written as the walk goes.
    const std::uint64_t kMaxBytes = 64u << 20;
    const bool dotToStdout = dotPath == "-";
    for (const Tree& t : trees) {
        const vexa::TreeMeasure m = vexa::MeasureTree(t.calc.get());
        const std::uint64_t dumpBytes = m.dump_chars + m.nodes;  // line ends
        const std::uint64_t outline = m.dump_chars / 5 + 24 * m.nodes;
        const std::uint64_t bytes = dump ? dumpBytes : outline;
        if (dotToStdout || bytes <= kMaxBytes || (force && !dump)) continue;
        Error("the tree of the " + t.title.substr(0, t.title.find(':')) + " has " + std::to_string(m.nodes) +
              " nodes, " + std::to_string(m.depth) + " levels deep: its dump would be " +
              std::to_string(dumpBytes) + " characters (" + Size(dumpBytes * 4) +
              " in memory as the library builds it), its outline about " + Size(outline) + ".\n  " +
              (dump ? std::string("The dump is refused beyond 64 MiB; --force streams the outline instead (without "
                                  "--dump).")
                    : std::string("Refused beyond 64 MiB; --force writes it all the same, node by node.")));
        return kExitEval;
    }
    if (!dotToStdout) {
        std::cout << "parameters:";
        for (std::size_t i = 0; i < p.params.size(); ++i)
            std::cout << (i ? ", " : " ") << ToUtf8(p.params[i]) << " (v:" << i << ")";
        if (p.params.empty()) std::cout << " (none)";
        std::cout << (dump ? "\n(the library's dump: a node's left operand above it, its right operand below it, a call's "
                             "arguments\n above its name, each level ten blanks deeper; constants show their whole part)\n"
                           : "\n(each node above its operands or arguments, which are indented two blanks deeper;\n"
                             " constants at full precision)\n");
        for (const Tree& t : trees) {
            std::cout << '\n' << t.title << '\n';
            if (dump) {
                std::vector<std::wstring> lines;
                static_cast<Expression*>(t.calc.get())->Dump(lines);
                for (const std::wstring& l : lines) std::cout << ToUtf8(l) << '\n';
            } else {
                WriteOutline(std::cout, t.calc.get(), p.params);
            }
        }
    }
    if (!dotPath.empty()) {
        std::vector<DotGraph> graphs;
        for (const Tree& t : trees) graphs.push_back({t.title, t.calc.get()});
        std::string msg;
        if (!WriteFileText(dotPath, RenderDot(graphs, p.params), msg)) {
            Error(msg);
            return kExitIo;
        }
        if (!dotToStdout)
            std::cerr << "vexa: wrote " << dotPath << " (render it with: dot -Tsvg " << dotPath << " -o tree.svg)\n";
    }
    return kExitOk;
}

int RunCheck(const std::vector<std::string>& files, const std::optional<std::string>& list, bool verbose) {
    CheckStats total;
    bool ioError = false;
    const std::optional<std::wstring> wlist = WideList(list);
    for (const std::string& f : files) {
        CheckStats s;
        if (f == "-") {
            s = CheckStream(std::cin, "<stdin>", wlist, verbose, std::cout, std::cerr);
        } else {
            std::ifstream in(f, std::ios::binary);
            if (!in) {
                Error("cannot read '" + f + "'");
                ioError = true;
                continue;
            }
            s = CheckStream(in, f, wlist, verbose, std::cout, std::cerr);
        }
        total.checked += s.checked;
        total.failed += s.failed;
        total.warned += s.warned;
    }
    std::cout << total.checked << " expression" << (total.checked == 1 ? "" : "s") << " checked, " << total.failed
              << " with errors, " << total.warned << " with warnings\n";
    if (ioError) return kExitIo;
    return total.failed ? kExitCheckFailed : kExitOk;
}

int RunFunctions(const std::vector<std::string>& names, bool namesOnly) {
    std::vector<std::string> unknown;
    ListFunctions(std::cout, names, namesOnly, unknown);
    for (const std::string& u : unknown) Error("'" + u + "' is not a function of the language");
    return unknown.empty() ? kExitOk : kExitUsage;
}

}  // namespace vexa_cli
