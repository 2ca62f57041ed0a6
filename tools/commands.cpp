#include "tools/commands.h"

#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>

#include "tools/call_forms.h"
#include "tools/check.h"
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

// Indices of several parameter names, appended to out; false after the first
// unknown name, which ResolveParam has reported.
bool ResolveParams(const std::vector<std::string>& names, const std::vector<std::wstring>& params,
                   std::vector<int>& out) {
    for (const std::string& n : names) {
        int i = 0;
        if (!ResolveParam(n, params, i)) return false;
        out.push_back(i);
    }
    return true;
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

int RunEval(const ExprArgs& a, const std::vector<std::string>& derivatives) {
    std::vector<Assignment> given;
    if (!LoadAssignments(a.assignments, given)) return kExitUsage;
    Parsed p;
    int rc = kExitOk;
    if (!Load(a, p, rc)) return rc;
    std::vector<int> dIdx;
    if (!ResolveParams(derivatives, p.params, dIdx)) return kExitUsage;
    std::vector<VEXA_Data> values;
    if (!BindOrReport(p.params, given, values)) return kExitUsage;
    std::cout << "parameters: " << JoinNames(p.params) << '\n';
    for (std::size_t i = 0; i < p.params.size(); ++i)
        std::cout << "  " << ToUtf8(p.params[i]) << " = " << FormatValue(values[i]) << '\n';
    EvalResult r = EvaluateAt(p.calc.get(), values);
    if (!r.ok) {
        std::string why = r.thrown ? DescribeThrownCode(r.code) : DescribeNullResult();
        if (!r.thrown) {
            const std::string culprit = FindRefusedCall(p.calc.get(), p.params);
            if (!culprit.empty()) why = "null result: " + culprit;
        }
        Error("cannot evaluate '" + a.expression + "': " + why);
        return kExitEval;
    }
    auto show = [](const std::string& label, const VEXA_Data& v) {
        std::cout << label;
        if (v.getType() != DT_SCALAR) std::cout << " (" << DescribeShape(v) << ")";
        std::cout << " = " << FormatValue(v) << '\n';
    };
    show("value", r.value);
    for (int d : dIdx) {
        int code = 0;
        vexa::CalcRef h = DerivativeOf(p.calc.get(), d, code);
        const std::string label = "d/d" + ToUtf8(p.params[d]);
        if (!h) {
            Error(label + ": " + (code ? DescribeThrownCode(code)
                                       : std::string("the derivative tree grew beyond the library's size limit")));
            return kExitEval;
        }
        EvalResult dr = EvaluateAt(h.get(), values);
        if (!dr.ok) {
            Error(label + " has no value here: " + (dr.thrown ? DescribeThrownCode(dr.code) : DescribeNullResult()));
            return kExitEval;
        }
        show(label, dr.value);
    }
    return kExitOk;
}

int RunSweep(const SweepArgs& a) {
    std::vector<Assignment> given;
    if (!LoadAssignments(a.expr.assignments, given)) return kExitUsage;
    auto from = ParseNumber(a.from), to = ParseNumber(a.to);
    if (!from || !to || !std::isfinite(*from) || !std::isfinite(*to)) {
        Error("--from and --to must be finite numbers such as 0, -1.5 or 2e-3 (got '" + a.from + "' and '" + a.to + "')");
        return kExitUsage;
    }
    if (a.points < 1 || a.points > 1000000) {
        Error("--points must be between 1 and 1000000");
        return kExitUsage;
    }
    Parsed p;
    int rc = kExitOk;
    if (!Load(a.expr, p, rc)) return rc;
    if (!a.svg.empty() && !p.can_plot) {
        Error("this expression calls IMPACT or BISTOP, which the library marks as not plottable; evaluate it at "
              "chosen values with 'vexa eval' instead (or leave out --svg to get the table)");
        return kExitUsage;
    }
    SweepRequest req;
    req.from = *from;
    req.to = *to;
    req.points = a.points;
    if (a.over.empty()) {
        if (p.params.size() != 1) {
            Error("say which parameter to sweep with --over NAME; the parameters are: " + JoinNames(p.params));
            return kExitUsage;
        }
        req.index = 0;
    } else if (!ResolveParam(a.over, p.params, req.index)) {
        return kExitUsage;
    }
    if (a.derivative) req.derivatives.push_back(req.index);
    if (!ResolveParams(a.wrt, p.params, req.derivatives)) return kExitUsage;
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
    if (!vexa_cli::RunSweep(p.calc.get(), p.params, values, req, result, msg)) {
        Error(msg);
        return kExitEval;
    }
    for (const std::string& n : MissingNotes(result)) std::cerr << "vexa: note: " << n << '\n';
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
        const std::string fixed = FixedValuesText(p.params, values, req.index);
        PlotPage page = PlotOfSweep(result, a.title.empty() ? a.expr.expression : a.title,
                                    (a.title.empty() ? std::string() : a.expr.expression + (fixed.empty() ? "" : "   ")) + fixed);
        if (!WriteFileText(a.svg, RenderSvg(page), msg)) {
            Error(msg);
            return kExitIo;
        }
        std::cerr << "vexa: wrote " << a.svg << '\n';
    }
    return kExitOk;
}

int RunTree(const ExprArgs& a, const std::vector<std::string>& derivatives, const std::string& dotPath, bool dump) {
    Parsed p;
    int rc = kExitOk;
    if (!Load(a, p, rc)) return rc;
    std::vector<int> dIdx;
    if (!ResolveParams(derivatives, p.params, dIdx)) return kExitUsage;
    struct Tree {
        std::string title;
        vexa::CalcRef calc;
    };
    std::vector<Tree> trees;
    trees.push_back({"expression: " + a.expression, vexa::CalcRef::Share(p.calc.get())});
    for (int d : dIdx) {
        int code = 0;
        vexa::CalcRef h = DerivativeOf(p.calc.get(), d, code);
        if (!h) {
            Error("cannot differentiate with respect to " + ToUtf8(p.params[d]) + ": " +
                  (code ? DescribeThrownCode(code) : std::string("the derivative tree grew beyond the library's size limit")));
            return kExitEval;
        }
        trees.push_back({"derivative with respect to " + ToUtf8(p.params[d]), std::move(h)});
    }
    // Dump lines are indented ten blanks a level, so a deep derivative tree
    // can dump to gigabytes; the outline is cheaper, but not by a lot.
    const std::uint64_t kMaxChars = 64u << 20;
    const bool dotToStdout = dotPath == "-";
    for (const Tree& t : trees) {
        const vexa::TreeMeasure m = vexa::MeasureTree(t.calc.get());
        const std::uint64_t outline = m.dump_chars / 5 + 32 * m.nodes;
        if (!dotToStdout && (dump ? m.dump_chars : outline) > kMaxChars) {
            Error("the tree of '" + t.title + "' has " + std::to_string(m.nodes) + " nodes, " + std::to_string(m.depth) +
                  " levels deep; its " + (dump ? "dump" : "outline") + " would be larger than 64 MiB");
            return kExitEval;
        }
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
                std::cout << RenderOutline(t.calc.get(), p.params);
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
    }
    std::cout << total.checked << " expression" << (total.checked == 1 ? "" : "s") << " checked, " << total.failed
              << " with errors\n";
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
