#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "tools/check.h"
#include "tools/commands.h"
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
    if (w[0] == "title") {
        e.title = text.substr(text.find("title") + 5);
        e.title.erase(0, e.title.find_first_not_of(" \t"));
    } else if (w[0] == "range") {
        auto lo = w.size() > 2 ? ParseNumber(w[2]) : std::nullopt;
        auto hi = w.size() > 3 ? ParseNumber(w[3]) : std::nullopt;
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
        e.list = ToWide(w.size() > 1 ? text.substr(text.find("params") + 7) : std::string());
    } else {
        e.error = "unknown directive '#@" + w[0] + "' (known: title, range, set, at, params)";
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
        if (s.size() >= 36) break;
    }
    while (!s.empty() && s.back() == '_') s.pop_back();
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

// Values at chosen points: one row per '#@at' line, derivatives by every parameter.
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
    // A derivative is taken by a small step in one scalar; a vector or
    // matrix parameter has no such step.
    std::vector<vexa::CalcRef> derivs;
    for (std::size_t i = 0; i < p.params.size(); ++i) {
        if (valueSets[0][i].getType() != DT_SCALAR) continue;
        int code = 0;
        derivs.push_back(DerivativeOf(p.calc.get(), static_cast<int>(i), code));
        heads.push_back("d/d" + ToUtf8(p.params[i]));
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
        for (vexa::CalcRef& d : derivs) row.push_back(d ? cell(EvaluateAt(d.get(), values)) : "-");
        rows.push_back(row);
    }
    PrintRows(heads, rows);
    for (int c : codes) std::cout << "   error " << c << ": " << DescribeThrownCode(c) << '\n';
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
    req.derivatives.push_back(req.index);
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
    if (!vexa_cli::RunSweep(p.calc.get(), p.params, values, req, result, msg)) {
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
    for (const std::string& note : MissingNotes(result)) std::cout << "   note: " << note << '\n';
    const std::string title = e.title.empty() ? e.expression : e.title;
    const std::string sub = (e.title.empty() ? std::string() : e.expression) + (fixed.empty() ? "" : "   [" + fixed + "]");
    const std::string path = (std::filesystem::path(outDir) / (Slug(e, n) + ".svg")).string();
    if (!WriteFileText(path, RenderSvg(PlotOfSweep(result, title, sub)), msg)) {
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
        std::cout << "   parameters: " << JoinNames(p.params) << '\n';
        bool ok = true;
        if (e.has_range && p.can_plot) {
            ok = SweepAndPlot(e, p, outDir, points, rows, n, written);
        } else {
            if (!p.can_plot) std::cout << "   (calls IMPACT or BISTOP: not plottable, evaluated at chosen values)\n";
            ok = TableAt(e, p);
        }
        if (!ok) ++failed;
    }
    std::cout << "\n" << entries.size() << " expressions, " << written.size() << " plots written to " << outDir;
    std::cout << (failed ? ", " + std::to_string(failed) + " failed" : std::string()) << '\n';
    return failed ? kExitCheckFailed : kExitOk;
}

}  // namespace vexa_cli
