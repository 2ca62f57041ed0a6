// Build-time generator of the comparison benchmark's cases. Reads expression
// sets where they lie (never copying them into the source tree), parses each
// usable line with the library, and writes for every expression, into a file
// of the build tree: the same expression as a C++ function of a parameter
// array (the native side) and as text for the peer parsers muParser and
// ExprTk, all made from the library's own parse tree so that every side
// computes the same formula.
//
// usage: gen_cases OUT.inc DIR FILE...
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

struct Range {
    double lo = 1.0;
    double hi = 2.0;
};

// Ranges for the names of the general sets, chosen so that every function of
// those sets stays in its domain; "e" is Euler's number, as those sets mean.
const std::map<std::string, Range> kDefaultRanges = {
    {"a", {1.0, 2.0}}, {"b", {2.0, 3.0}}, {"c", {1.0, 2.0}}, {"x", {3.0, 4.0}},
    {"y", {1.0, 2.0}}, {"z", {3.0, 4.0}}, {"w", {5.0, 6.0}},
    {"e", {2.718281828459045, 2.718281828459045}},
};

std::string Narrow(const std::wstring& w)
{
    std::string s;
    for (wchar_t c : w)
        s.push_back(c < 128 ? static_cast<char>(c) : '?');
    return s;
}

std::string Number(double v)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    std::string s = buf;
    if (s.find_first_of(".en") == std::string::npos)
        s += ".0";
    return v < 0 ? "(" + s + ")" : s;
}

std::string Quote(const std::string& s)
{
    std::string q = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            q.push_back('\\');
        q.push_back(c);
    }
    return q + "\"";
}

struct Translation {
    std::string native;
    std::string peer;
    std::string exprtk;
    bool ok = true;
};

class Translator {
public:
    Translation Of(INode* node)
    {
        Translation t;
        Walk(node, t);
        return t;
    }

private:
    void Walk(INode* node, Translation& t)
    {
        if (auto* k = dynamic_cast<ConstantParam*>(node)) {
            const VEXA_Data v = k->Calculate();
            if (v.getType() != DT_SCALAR) {
                t.ok = false;
                return;
            }
            t.native += Number(v.getValue()[0]);
            t.peer += Number(v.getValue()[0]);
            t.exprtk += Number(v.getValue()[0]);
        } else if (auto* p = dynamic_cast<VariableParam*>(node)) {
            t.native += "p[" + std::to_string(p->m_index) + "]";
            t.peer += "p" + std::to_string(p->m_index);
            t.exprtk += "p" + std::to_string(p->m_index);
        } else if (auto* op = dynamic_cast<OperaterNode*>(node)) {
            Operator(op, t);
        } else if (auto* f = dynamic_cast<FunctionNode*>(node)) {
            Function(f, t);
        } else {
            t.ok = false;
        }
    }

    void Operator(OperaterNode* op, Translation& t)
    {
        const char* sym = nullptr;
        switch (op->m_kind) {
        case vexa::kAdd: sym = "+"; break;
        case vexa::kSub: sym = "-"; break;
        case vexa::kMul: sym = "*"; break;
        case vexa::kDiv: sym = "/"; break;
        case vexa::kPow: {
            Translation l = Of(op->m_left), r = Of(op->m_right);
            t.ok = t.ok && l.ok && r.ok;
            t.native += "std::pow(" + l.native + ", " + r.native + ")";
            t.peer += "((" + l.peer + ")^(" + r.peer + "))";
            t.exprtk += "((" + l.exprtk + ")^(" + r.exprtk + "))";
            return;
        }
        default: t.ok = false; return;
        }
        Translation l = Of(op->m_left), r = Of(op->m_right);
        t.ok = t.ok && l.ok && r.ok;
        t.native += "(" + l.native + " " + sym + " " + r.native + ")";
        t.peer += "(" + l.peer + sym + r.peer + ")";
        t.exprtk += "(" + l.exprtk + sym + r.exprtk + ")";
    }

    void Function(FunctionNode* f, Translation& t)
    {
        const std::string name = Narrow(static_cast<const wchar_t*>(f->m_function->getName()));
        std::vector<Translation> args;
        for (int i = 0; i < f->m_arg_count; ++i) {
            args.push_back(Of(f->m_args[i]));
            t.ok = t.ok && args.back().ok;
        }
        enum Side { kNative, kPeer, kExprtk };
        auto list = [&](Side side, std::size_t from) {
            std::string s;
            for (std::size_t i = from; i < args.size(); ++i) {
                const Translation& a = args[i];
                s += (i > from ? ", " : "") + (side == kNative ? a.native : side == kPeer ? a.peer : a.exprtk);
            }
            return s;
        };
        // ExprTk's names: its built-ins where they compute the same thing,
        // else the callbacks bench/exprtk_peer.cpp registers.
        static const std::map<std::string, std::string> kExprtkNames = {
            {"SIN", "sin"},     {"COS", "cos"},     {"TAN", "tan"},       {"ASIN", "asin"},
            {"ACOS", "acos"},   {"ATAN", "atan"},   {"SINH", "sinh"},     {"COSH", "cosh"},
            {"TANH", "tanh"},   {"EXP", "exp"},     {"LOG", "log"},       {"LOG10", "log10"},
            {"SQRT", "sqrt"},   {"ABS", "abs"},     {"AINT", "trunc"},    {"ANINT", "anint"},
            {"ATAN2", "atan2"}, {"MAX", "max"},     {"MIN", "min"},       {"MOD", "vmod"},
            {"SIGN", "vsign"},  {"STEP", "step"},   {"STEP5", "step5"},   {"HAVSIN", "havsin"},
            {"SHF", "shf"},     {"IMPACT", "impact"}, {"BISTOP", "bistop"}, {"SWEEP", "sweep"},
            {"POLY", "poly"},   {"CHEBY", "cheby"}, {"FORCOS", "forcos"}, {"FORSIN", "forsin"},
        };
        const auto found = kExprtkNames.find(name);
        const std::string xtName = found == kExprtkNames.end() ? name : found->second;
        static const std::map<std::string, std::pair<std::string, std::string>> kSimple = {
            {"SIN", {"std::sin", "sin"}},       {"COS", {"std::cos", "cos"}},
            {"TAN", {"std::tan", "tan"}},       {"ASIN", {"std::asin", "asin"}},
            {"ACOS", {"std::acos", "acos"}},    {"ATAN", {"std::atan", "atan"}},
            {"SINH", {"std::sinh", "sinh"}},    {"COSH", {"std::cosh", "cosh"}},
            {"TANH", {"std::tanh", "tanh"}},    {"EXP", {"std::exp", "exp"}},
            {"LOG", {"std::log", "ln"}},        {"LOG10", {"std::log10", "log10"}},
            {"SQRT", {"std::sqrt", "sqrt"}},    {"ABS", {"std::fabs", "abs"}},
            {"AINT", {"std::trunc", "AINT"}},   {"ANINT", {"std::round", "ANINT"}},
            {"ATAN2", {"std::atan2", "ATAN2"}}, {"MAX", {"native::max", "max"}},
            {"MIN", {"native::min", "min"}},      {"MOD", {"native::mod", "MOD"}},
            {"SIGN", {"native::sign", "SIGN2"}}, {"STEP", {"native::step", "STEP"}},
            {"STEP5", {"native::step5", "STEP5"}}, {"HAVSIN", {"native::havsin", "HAVSIN"}},
            {"SHF", {"native::shf", "SHF"}},    {"IMPACT", {"native::impact", "IMPACT"}},
            {"BISTOP", {"native::bistop", "BISTOP"}}, {"SWEEP", {"native::sweep", "SWEEP"}},
        };
        static const std::map<std::string, std::pair<std::string, std::size_t>> kSeries = {
            {"POLY", {"poly", 2}}, {"CHEBY", {"cheby", 2}}, {"FORCOS", {"forcos", 3}}, {"FORSIN", {"forsin", 3}},
        };
        if (name == "sin" || name == "cos") {
            t.native += "std::" + name + "(" + list(kNative, 0) + ")";
            t.peer += name + "(" + list(kPeer, 0) + ")";
            t.exprtk += name + "(" + list(kExprtk, 0) + ")";
        } else if (kSimple.count(name)) {
            const auto& m = kSimple.at(name);
            t.native += m.first + "(" + list(kNative, 0) + ")";
            t.peer += m.second + "(" + list(kPeer, 0) + ")";
            t.exprtk += xtName + "(" + list(kExprtk, 0) + ")";
        } else if (name == "IF" && args.size() == 4) {
            t.native += "native::if4(" + list(kNative, 0) + ")";
            t.exprtk += "if((" + args[0].exprtk + ")<0, " + args[1].exprtk + ", if((" + args[0].exprtk +
                        ")==0, " + args[2].exprtk + ", " + args[3].exprtk + "))";
            t.peer += "((" + args[0].peer + ")<0 ? (" + args[1].peer + ") : ((" + args[0].peer + ")==0 ? (" +
                      args[2].peer + ") : (" + args[3].peer + ")))";
        } else if (kSeries.count(name)) {
            const auto& m = kSeries.at(name);
            const std::size_t lead = m.second;
            std::string head;
            for (std::size_t i = 0; i < lead; ++i)
                head += args[i].native + ", ";
            t.native += "[&] { const double c[] = {" + list(kNative, lead) + "}; return native::" + m.first + "(" +
                        head + "c, " + std::to_string(args.size() - lead) + "); }()";
            t.peer += name + "(" + list(kPeer, 0) + ")";
            t.exprtk += xtName + "(" + list(kExprtk, 0) + ")";
        } else {
            // Measures and forces answer with their placeholder value.
            t.native += "12.0";
            t.peer += "12";
            t.exprtk += "12";
            if (name.empty())
                t.ok = false;
        }
    }
};

bool UsesMissingOperators(const std::string& line)
{
    return line.find_first_of("<>=!&|?;[]~$'\"") != std::string::npos;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: gen_cases OUT.inc DIR FILE...\n");
        return 2;
    }
    std::ostringstream functions, cases;
    int count = 0;
    for (int f = 3; f < argc; ++f) {
        const std::string file = argv[f];
        std::ifstream in(std::string(argv[2]) + "/" + file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "gen_cases: cannot read %s/%s\n", argv[2], file.c_str());
            return 1;
        }
        std::map<std::string, Range> ranges = kDefaultRanges;
        std::string line;
        while (std::getline(in, line)) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (line.rfind("#@range", 0) == 0) {
                std::istringstream fields(line.substr(7));
                std::string name;
                Range r;
                if (fields >> name >> r.lo >> r.hi)
                    ranges[name] = r;
                continue;
            }
            if (line.empty() || line[0] == '#' || UsesMissingOperators(line))
                continue;
            std::wstring text(line.begin(), line.end());
            VexaParser parser;
            ICalculator* calc = nullptr;
            try {
                if (!parser.parse(text.c_str(), nullptr, &calc))
                    continue;
            } catch (int) {
                if (calc)
                    calc->Release();
                continue;
            }
            // The walk shows the root first.
            INode* root = nullptr;
            vexa::WalkTree(calc, [&root](const vexa::TreeNodeInfo& n) {
                root = n.node;
                return false;
            });
            Translation t = Translator().Of(root);
            std::vector<std::string> names;
            std::vector<Range> rs;
            for (int i = 0; i < parser.getParamsNum(); ++i) {
                names.push_back(Narrow(static_cast<const wchar_t*>(parser.getParam(i))));
                const auto it = ranges.find(names.back());
                rs.push_back(it == ranges.end() ? Range() : it->second);
            }
            // Evaluate once at the middle of every range: an expression that
            // leaves its domain there measures the fallback, not evaluation.
            std::vector<VEXA_Data> mid;
            for (const Range& r : rs)
                mid.emplace_back(0.5 * (r.lo + r.hi));
            VEXA_Data value;
            bool good = false;
            try {
                good = t.ok && calc->Evaluate(static_cast<int>(mid.size()), mid.data(), value) &&
                       value.getType() == DT_SCALAR && std::isfinite(value.getValue()[0]);
            } catch (int) {
                good = false;
            }
            calc->Release();
            if (!good)
                continue;
            functions << "static double native_" << count << "(const double* p) { (void)p; return " << t.native
                      << "; }\n";
            std::string nameList, lo, hi;
            for (std::size_t i = 0; i < names.size(); ++i) {
                nameList += (i ? "," : "") + names[i];
                lo += (i ? ", " : "") + Number(rs[i].lo);
                hi += (i ? ", " : "") + Number(rs[i].hi);
            }
            cases << "    {" << Quote(file) << ", L" << Quote(line) << ", " << Quote(t.peer) << ", "
                  << Quote(t.exprtk) << ", "
                  << names.size() << ", " << Quote(nameList) << ", {" << lo << "}, {" << hi << "}, native_"
                  << count << "},\n";
            ++count;
        }
    }
    std::ofstream out(argv[1]);
    out << "// Generated by bench/gen_cases from the expression sets; do not edit.\n"
        << functions.str() << "\nstatic const BenchCase kCases[] = {\n"
        << cases.str() << "};\n";
    std::fprintf(stderr, "gen_cases: %d expressions\n", count);
    return out ? 0 : 1;
}
