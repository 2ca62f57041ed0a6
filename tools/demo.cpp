#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "tools/check.h"
#include "tools/commands.h"
#include "tools/derivatives.h"
#include "tools/errors.h"
#include "tools/numbers.h"
#include "tools/session.h"
#include "tools/svg_plot.h"
#include "tools/sweep.h"
#include "tools/values.h"
#include "tools/wide.h"

namespace vexa_cli {

namespace {

// One expression of a demo file with the directives written above it:
//   #@title TEXT               heading and plot title
//   #@range NAME LO HI [N]     sweep NAME and plot value and derivative
//   #@set NAME=VALUE ...       values of the other parameters
//   #@at NAME=VALUE ...        one row of a table of chosen values
//   #@params LIST              the host's parameter-name list
//   #@ylabel TEXT              what the value is, for the plot
//   #@yunit UNIT [FACTOR]      its unit in the plot, drawn times FACTOR
//   #@xunit UNIT               the unit of the swept parameter
struct DemoEntry {
    int line = 0;
    std::string title, expression;
    std::vector<Assignment> fixed;
    bool has_range = false;
    std::string range_name;
    double lo = 0, hi = 1;
    int points = 0;
    std::vector<std::vector<Assignment>> at;
    std::optional<std::wstring> list;
    PlotUnits units;
    std::string error;  // a malformed directive
};

// Splits at blanks outside brackets and braces, so "v=[1, 2]" stays whole.
std::vector<std::string> Words(const std::string& s) {
    std::vector<std::string> out;
    std::string cur;
    int depth = 0;
    for (char c : s) {
        if (c == '[' || c == '{') ++depth;
        if (c == ']' || c == '}') --depth;
        if ((c == ' ' || c == '\t') && depth <= 0) {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

bool Assignments(const std::vector<std::string>& words, std::size_t from, std::vector<Assignment>& out,
                 std::string& error) {
    for (std::size_t i = from; i < words.size(); ++i) {
        Assignment a;
        if (!ParseAssignment(words[i], a, error)) return false;
        out.push_back(std::move(a));
    }
    return true;
}

void Directive(const std::string& text, DemoEntry& e) {
    const std::vector<std::string> w = Words(text);
    if (w.empty()) return;
    std::string err;
    // The rest of the line after the directive's name.
    std::string rest = text.substr(text.find(w[0]) + w[0].size());
    rest.erase(0, rest.find_first_not_of(" \t"));
    if (w[0] == "title") {
        e.title = rest;
    } else if (w[0] == "ylabel") {
        e.units.ylabel = rest;
    } else if (w[0] == "xunit") {
        e.units.xunit = rest;
    } else if (w[0] == "yunit") {
        auto factor = w.size() == 3 ? ParseLanguageNumber(w[2]) : std::optional<double>(1.0);
        if (w.size() < 2 || w.size() > 3 || !factor || !std::isfinite(*factor) || *factor == 0) {
            e.error = "'#@yunit' wants UNIT [FACTOR], the factor a number other than 0 such as 1E3 or RTOD";
            return;
        }
        e.units.yunit = w[1];
        e.units.yscale = *factor;
    } else if (w[0] == "range") {
        auto lo = w.size() > 2 ? ParseLanguageNumber(w[2]) : std::nullopt;
        auto hi = w.size() > 3 ? ParseLanguageNumber(w[3]) : std::nullopt;
        auto n = w.size() > 4 ? ParseNumber(w[4]) : std::optional<double>(0);
        if (w.size() < 4 || w.size() > 5 || !lo || !hi || !n || *n < 0 || *n > 100000) {
            e.error = "'#@range' wants NAME LO HI [POINTS]";
            return;
        }
        e.has_range = true;
        e.range_name = w[1];
        e.lo = *lo;
        e.hi = *hi;
        e.points = static_cast<int>(*n);
    } else if (w[0] == "set") {
        if (!Assignments(w, 1, e.fixed, err)) e.error = err;
    } else if (w[0] == "at") {
        e.at.emplace_back();
        if (!Assignments(w, 1, e.at.back(), err)) e.error = err;
    } else if (w[0] == "params") {
        e.list = ToWide(rest);
    } else {
        e.error = "unknown directive '#@" + w[0] + "' (known: title, range, set, at, params, ylabel, yunit, xunit)";
    }
}

std::vector<DemoEntry> ReadDemo(std::istream& in) {
    std::vector<DemoEntry> entries;
    DemoEntry cur;
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        line = StripCr(line);
        const std::size_t p = line.find_first_not_of(" \t");
        if (p == std::string::npos) continue;
        if (line.compare(p, 2, "#@") == 0) {
            Directive(line.substr(p + 2), cur);
            continue;
        }
        if (line[p] == '#') continue;
        cur.line = number;
        cur.expression = line;
        entries.push_back(std::move(cur));
        cur = DemoEntry();
    }
    return entries;
}

std::string Slug(const DemoEntry& e, int n) {
    std::string base = e.title.empty() ? e.expression : e.title;
    std::string s;
    for (char c : base) {
        if (std::isalnum(static_cast<unsigned char>(c)))
            s += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (!s.empty() && s.back() != '_')
            s += '_';
    }
    while (!s.empty() && s.back() == '_') s.pop_back();
    // Long titles end at a whole word.
    const std::size_t kMost = 48;
    if (s.size() > kMost) {
        const std::size_t cut = s.rfind('_', kMost);
        s = s.substr(0, cut == std::string::npos || cut < kMost / 2 ? kMost : cut);
    }
    char num[16];
    std::snprintf(num, sizeof num, "%02d", n);
    return std::string(num) + (s.empty() ? "" : "_" + s);
}

void PrintRows(const std::vector<std::string>& heads, const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> w;
    for (const std::string& h : heads) w.push_back(std::max<std::size_t>(h.size(), 12) + 2);
    for (const auto& r : rows)
        for (std::size_t c = 0; c < r.size() && c < w.size(); ++c) w[c] = std::max(w[c], r[c].size() + 2);
    auto line = [&](const std::vector<std::string>& cells) {
        std::cout << "   ";
        for (std::size_t c = 0; c < cells.size(); ++c)
            std::cout << std::string(w[c] > cells[c].size() ? w[c] - cells[c].size() : 0, ' ') << cells[c];
        std::cout << '\n';
    };
    line(heads);
    for (const auto& r : rows) line(r);
}

std::string CellOf(const EvalResult& r) {
    if (!r.ok) return r.thrown ? "error " + std::to_string(r.code) : "null";
    if (r.value.getType() == DT_SCALAR) return FormatShort(Elements(r.value)[0], 10);
    return FormatValue(r.value);
}

// Values at chosen points: one row per '#@at' line, with the derivatives by
// every scalar parameter, exact and as the derivative calculator gives them.
bool TableAt(const DemoEntry& e, const Parsed& p) {
    std::vector<std::string> heads;
    for (const std::wstring& n : p.params) heads.push_back(ToUtf8(n));
    heads.push_back("value");
    std::vector<std::vector<Assignment>> sets = e.at;
    if (sets.empty()) sets.emplace_back();
    std::vector<std::vector<VEXA_Data>> valueSets;
    for (const auto& set : sets) {
        std::vector<Assignment> all = e.fixed;
        all.insert(all.end(), set.begin(), set.end());
        std::string msg;
        valueSets.emplace_back();
        if (!BindValues(p.params, all, valueSets.back(), msg, nullptr)) {
            std::cerr << "vexa: error: line " << e.line << ": " << msg << '\n';
            return false;
        }
    }
    std::unique_ptr<vexa::CompiledExpression> form =
        AllScalar(valueSets[0]) ? vexa::CompiledExpression::Make(p.calc.get(), static_cast<int>(p.params.size())) : nullptr;
    // A derivative by a vector or matrix parameter has no meaning here.
    std::vector<int> wrt;
    std::vector<HostDerivative> hosts;
    std::vector<std::string> notes;
    for (std::size_t i = 0; i < p.params.size(); ++i) {
        if (valueSets[0][i].getType() != DT_SCALAR) continue;
        const DerivativeRequest d{static_cast<int>(i), 1};
        wrt.push_back(static_cast<int>(i));
        hosts.push_back(HostDerivativeOf(p.calc.get(), p.params, d));
        const std::string label = DerivativeLabel(p.params, d);
        if (form) heads.push_back(label);
        heads.push_back("calc " + label + (hosts.back().mark.empty() ? "" : "*"));
        if (!hosts.back().mark.empty())
            notes.push_back("calc " + label + "*: the derivative calculator is not to be trusted here: " +
                            hosts.back().mark);
    }
    std::vector<std::vector<std::string>> rows;
    std::vector<int> codes;
    auto cell = [&](const EvalResult& r) {
        if (r.thrown && std::find(codes.begin(), codes.end(), r.code) == codes.end()) codes.push_back(r.code);
        return CellOf(r);
    };
    for (std::vector<VEXA_Data>& values : valueSets) {
        std::vector<std::string> row;
        for (const VEXA_Data& v : values) row.push_back(FormatValue(v));
        row.push_back(cell(EvaluateAt(p.calc.get(), values)));
        std::vector<double> point, grad(values.size(), 0.0);
        vexa::Outcome exact{0, vexa::Failure::kNoGradient, 0};
        if (form) {
            for (const VEXA_Data& v : values) point.push_back(v.getValue()[0]);
            vexa::Workspace ws(*form);
            exact = form->Gradient(point.data(), grad.data(), ws);
        }
        for (std::size_t k = 0; k < wrt.size(); ++k) {
            if (form) row.push_back(exact.ok() ? FormatShort(grad[static_cast<std::size_t>(wrt[k])], 10) : "-");
            row.push_back(hosts[k].calc ? cell(EvaluateAt(hosts[k].calc.get(), values)) : "-");
        }
        rows.push_back(row);
    }
    PrintRows(heads, rows);
    for (int c : codes) std::cout << "   error " << c << ": " << DescribeThrownCode(c) << '\n';
    if (!wrt.empty())
        std::cout << "   calc: what the library's derivative calculator gives a host"
                  << (form ? "; beside it the exact derivative" : "; no exact derivative for vector values") << '\n';
    for (const std::string& note : notes) std::cout << "   " << note << '\n';
    return true;
}

// Sweep over the '#@range' parameter, short table, SVG file.
bool SweepAndPlot(const DemoEntry& e, const Parsed& p, const std::string& outDir, int points, int rows, int n,
                  std::vector<std::string>& written) {
    SweepRequest req;
    if (!(req.index = FindParam(p.params, ToWide(e.range_name)), req.index >= 0)) {
        std::cerr << "vexa: error: line " << e.line << ": '#@range " << e.range_name
                  << "' names no parameter of the expression (parameters: " << JoinNames(p.params) << ")\n";
        return false;
    }
    req.from = e.lo;
    req.to = e.hi;
    req.points = e.points > 0 ? e.points : points;
    req.derivatives.push_back({req.index, 1});
    std::vector<Assignment> all = e.fixed;
    Assignment x;
    x.name = p.params[req.index];
    x.value = VEXA_Data(e.lo);
    all.push_back(x);
    std::vector<VEXA_Data> values;
    std::string msg;
    if (!BindValues(p.params, all, values, msg, nullptr)) {
        std::cerr << "vexa: error: line " << e.line << ": " << msg << " (use '#@set NAME=VALUE')\n";
        return false;
    }
    SweepResult result;
    if (!vexa_cli::EvaluateSweep(p.calc.get(), p.text, p.params, values, req, result, msg)) {
        std::cerr << "vexa: error: line " << e.line << ": " << msg << '\n';
        return false;
    }
    std::string fixed;
    for (std::size_t i = 0; i < p.params.size(); ++i)
        if (static_cast<int>(i) != req.index)
            fixed += (fixed.empty() ? "" : ", ") + ToUtf8(p.params[i]) + " = " + FormatValue(values[i]);
    if (!fixed.empty()) std::cout << "   fixed: " << fixed << '\n';
    std::ostringstream table;
    PrintTable(table, result, rows);
    std::istringstream lines(table.str());
    for (std::string l; std::getline(lines, l);) std::cout << "  " << l << '\n';
    for (const std::string& note : SweepNotes(result)) std::cout << "   note: " << note << '\n';
    const std::string title = e.title.empty() ? e.expression : e.title;
    const std::string sub = (e.title.empty() ? std::string() : e.expression) + (fixed.empty() ? "" : "   [" + fixed + "]");
    const std::string path = (std::filesystem::path(outDir) / (Slug(e, n) + ".svg")).string();
    if (!WriteFileText(path, RenderSvg(PlotOfSweep(result, title, sub, e.units)), msg)) {
        std::cerr << "vexa: error: " << msg << '\n';
        return false;
    }
    std::cout << "   plot: " << path << '\n';
    written.push_back(path);
    return true;
}

}  // namespace

int RunDemo(const std::string& file, const std::string& outDir, int points, int rows) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::cerr << "vexa: error: cannot read '" << file << "'\n";
        return kExitIo;
    }
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);
    if (ec || !std::filesystem::is_directory(outDir)) {
        std::cerr << "vexa: error: cannot create the folder '" << outDir << "'\n";
        return kExitIo;
    }
    const std::vector<DemoEntry> entries = ReadDemo(in);
    int failed = 0;
    std::vector<std::string> written;
    for (std::size_t k = 0; k < entries.size(); ++k) {
        const DemoEntry& e = entries[k];
        const int n = static_cast<int>(k) + 1;
        std::cout << (k ? "\n" : "") << "[" << n << "] " << (e.title.empty() ? e.expression : e.title) << '\n';
        if (!e.title.empty()) std::cout << "   " << e.expression << '\n';
        if (!e.error.empty()) {
            std::cerr << "vexa: error: " << file << ": directive before line " << e.line << ": " << e.error << '\n';
            ++failed;
            continue;
        }
        Parsed p = ParseText(ToWide(e.expression), e.list);
        if (p.status != ParseStatus::Ok) {
            std::cerr << "vexa: error: " << file << ":" << e.line << ": " << DescribeParseFailure(p);
            ++failed;
            continue;
        }
        for (const vexa::TextWarning& w : Review(p))
            std::cout << "   warning: " << DescribeWarning(w, p.text, p.list);
        std::cout << "   parameters: " << JoinNames(p.params) << '\n';
        bool ok = true;
        if (e.has_range) ok = SweepAndPlot(e, p, outDir, points, rows, n, written);
        if (ok && (!e.has_range || !e.at.empty())) ok = TableAt(e, p);
        if (!ok) ++failed;
    }
    std::cout << "\n" << entries.size() << " expressions, " << written.size() << " plots written to " << outDir;
    std::cout << (failed ? ", " + std::to_string(failed) + " failed" : std::string()) << '\n';
    return failed ? kExitCheckFailed : kExitOk;
}

}  // namespace vexa_cli
