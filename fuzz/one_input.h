#ifndef VEXA_FUZZ_ONE_INPUT_H
#define VEXA_FUZZ_ONE_INPUT_H

// One fuzzing input taken through everything a host can do with a text:
// parse, read the parameter order, evaluate, copy, dump, differentiate and
// release. Shared by the fuzzer and by the test that replays its findings, so
// a saved finding fails the ordinary test suite the same way it failed here.
//
// Input layout: first any number of definition lines (below); then, if the
// bytes left contain a newline, the part before the first one is the
// parameter-name list and the rest is the expression; without a newline the
// whole rest is the expression and the list is null.
//
// Definitions: a line "@TEXT" parses TEXT with the parameters a, b and
// registers it as G0, G1, ... in order, so later definitions and the
// expression can call the earlier ones (compositions, calls of calls). A
// line "@>ij" (two digits) gives Gi the tree Gj(a) afterwards: a function
// that calls itself, or that grows after its callers were parsed. A line
// "@~nn" (two digits) makes every later '~' (in definitions and in the
// expression) repeat the argument before it to nn arguments in all, up to
// 64: "G0(a*2~)" with "@~03" reads G0(a*2,a*2,a*2), so calls of high arity,
// past what the function takes, occur. Bytes are
// read as lenient UTF-8; a 0xFF byte followed by four bytes gives one raw
// 32-bit code unit, so code units above U+10FFFF and "negative" wchar_t values
// reach the parser too.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include "vexa/vexa.h"

namespace vexa_fuzz {

// Registered once per process so that texts can call a host function; the
// name is upper case because the parser upper-cases call names.
inline void Setup()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    // Machine code from the second repeated evaluation on, so that the few
    // evaluations of one input reach it (unless the run asks otherwise).
#if defined(_WIN32)
    if (!std::getenv("VEXA_MACHINE_CODE_AFTER"))
        _putenv_s("VEXA_MACHINE_CODE_AFTER", "1");
#else
    setenv("VEXA_MACHINE_CODE_AFTER", "1", 0);
#endif
    FunctionFactory* factory = FunctionFactory::getInstance();
    VEXA_WString name(L"HOSTF");
    if (factory->IsFunction(name))
        return;
    VexaParser parser;
    ICalculator* calc = nullptr;
    wchar_t list[] = L"a,b";
    try {
        if (!parser.parse(L"a*b+SIN(a)", list, &calc))
            return;
    } catch (int) {
        if (calc)
            calc->Release();
        return;
    }
    // On success the registry has taken a reference of its own.
    factory->Register(name, calc);
    calc->Release();
}

inline std::vector<wchar_t> Decode(const std::uint8_t* data, std::size_t size)
{
    std::vector<wchar_t> out;
    out.reserve(size + 1);
    std::size_t i = 0;
    while (i < size) {
        std::uint8_t b = data[i];
        if (b == 0xFF && i + 4 < size) {
            std::uint32_t u = std::uint32_t(data[i + 1]) | std::uint32_t(data[i + 2]) << 8 |
                              std::uint32_t(data[i + 3]) << 16 | std::uint32_t(data[i + 4]) << 24;
            out.push_back(static_cast<wchar_t>(u));
            i += 5;
            continue;
        }
        int extra = b >= 0xF0 && b < 0xF8 ? 3 : b >= 0xE0 && b < 0xF0 ? 2 : b >= 0xC0 && b < 0xE0 ? 1 : 0;
        if (extra > 0 && i + extra < size) {
            std::uint32_t u = b & (0x3F >> extra);
            bool ok = true;
            for (int k = 1; k <= extra; ++k) {
                std::uint8_t c = data[i + k];
                if ((c & 0xC0) != 0x80) {
                    ok = false;
                    break;
                }
                u = u << 6 | (c & 0x3F);
            }
            if (ok) {
                out.push_back(static_cast<wchar_t>(u));
                i += extra + 1;
                continue;
            }
        }
        out.push_back(static_cast<wchar_t>(b));
        ++i;
    }
    out.push_back(L'\0');
    return out;
}

// What one call produced, in a form two calls can be compared by.
struct Outcome {
    bool threw = false;
    int code = 0;
    bool ok = false;
    int rows = -1;
    int cols = -1;
    std::vector<double> values;
};

// Bit for bit, NaNs included.
inline bool SameOutcome(const Outcome& a, const Outcome& b)
{
    if (a.threw != b.threw || a.code != b.code || a.ok != b.ok || a.rows != b.rows || a.cols != b.cols ||
        a.values.size() != b.values.size())
        return false;
    return a.values.empty() || std::memcmp(a.values.data(), b.values.data(), a.values.size() * sizeof(double)) == 0;
}

// A copy of e that is evaluated as a tree, never compiled: the reference the
// compiled evaluation must match bit for bit.
inline Expression* TreeOnlyCopy(Expression* e)
{
    // The library's copy, then its tree copied once more under an Expression
    // of the host's making: a tree handed to SetRoot is never compiled.
    Expression* copy = e->Copy();
    if (!copy)
        return nullptr;
    INode* root = nullptr;
    vexa::WalkTree(copy, [&root](const vexa::TreeNodeInfo& n) {
        root = n.node;
        return false;  // the root comes first
    });
    if (!root) {
        copy->Release();
        return nullptr;
    }
    Expression* tree = new Expression();
    try {
        tree->SetRoot(root->Copy(tree));
    } catch (...) {
        tree->Release();
        copy->Release();
        throw;
    }
    copy->Release();
    return tree;
}

inline Outcome Run(ICalculator* calc, std::vector<VEXA_Data>& params, std::string& problem)
{
    Outcome o;
    VEXA_Data result;
    try {
        o.ok = calc->Evaluate(static_cast<int>(params.size()), params.empty() ? nullptr : params.data(), result);
    } catch (int code) {
        o.threw = true;
        o.code = code;
        return o;
    }
    if (o.ok != (result.getType() != DT_NULL))
        problem = "Evaluate's result disagrees with the kind of the value it wrote";
    if (result.getType() != DT_NULL && result.getDataInfo(o.rows, o.cols)) {
        double* v = result.getValue();
        long n = long(o.rows) * o.cols;
        if (v && n > 0 && n < 1000000)
            o.values.assign(v, v + n);
    }
    std::wstring text = result;  // the text form must be producible for any value
    (void)text;
    return o;
}

// Parameter value sets: plain scalars, zeros (division by zero, LOG of 0),
// extreme and non-finite scalars, row vectors, matrices and a mix of shapes.
inline std::vector<std::vector<VEXA_Data>> ValueSets(int n)
{
    std::vector<std::vector<VEXA_Data>> sets(7);
    const double extreme[] = {1E308, -1E308, NAN, INFINITY, -INFINITY, 2147483648.0, -0.0};
    for (int i = 0; i < n; ++i) {
        sets[0].push_back(VEXA_Data(0.5 + 0.37 * i));
        sets[1].push_back(VEXA_Data(0.0));
        sets[2].push_back(VEXA_Data(extreme[i % 7]));
        VEXA_Data v(1, 3);
        double* pv = v.getValue();
        pv[0] = 1.0 + i;
        pv[1] = -2.0;
        pv[2] = 0.25;
        sets[3].push_back(v);
        VEXA_Data m(3, 3);
        double* pm = m.getValue();
        for (int k = 0; k < 9; ++k)
            pm[k] = (k % 4 == 0 ? 2.0 : 0.5) + 0.1 * i;
        sets[4].push_back(m);
        sets[5].push_back(i % 3 == 0 ? VEXA_Data(1.5) : i % 3 == 1 ? v : m);
    }
    // sets[6] stays empty: evaluation with fewer values than parameters.
    return sets;
}

// The compiled form for many points must answer as Evaluate did at every
// all-scalar set (sets 0 to 2), value bits included; its gradient there must
// run, through machine code or interpreter, whatever it answers. Making a
// form (a private copy, programs, machine code) costs more than the rest of
// an input, so a quarter of the inputs, chosen by the length of their text,
// take this check: the fuzzer keeps its pace.
constexpr int kMaxFormParams = 64;

inline void CheckCompiledForm(std::size_t textLength, ICalculator* calc, int n,
                              const std::vector<std::vector<VEXA_Data>>& sets, const std::vector<Outcome>& base,
                              std::string& problem)
{
    if (n < 1 || n > kMaxFormParams || textLength % 4 != 0)
        return;
    std::unique_ptr<vexa::CompiledExpression> form;
    try {
        form = vexa::CompiledExpression::Make(calc, n);
    } catch (int) {
        problem = "making a compiled form threw a code";
    }
    if (!form)
        return;
    vexa::Workspace ws(*form);
    for (std::size_t s = 0; s < 3; ++s) {
        std::vector<double> point;
        for (const VEXA_Data& v : sets[s])
            point.push_back(v.getValue()[0]);
        const vexa::Outcome o = form->Evaluate(point.data(), ws);
        const Outcome& b = base[s];
        bool same;
        if (b.threw)
            same = o.failure == vexa::Failure::kThrown && o.code == b.code;
        else if (!b.ok)
            same = o.failure == vexa::Failure::kNull;
        else if (b.rows != 1 || b.cols != 1 || b.values.size() != 1)
            same = o.failure == vexa::Failure::kNotScalar;
        else
            same = o.ok() && std::memcmp(&o.value, b.values.data(), sizeof(double)) == 0;
        if (!same)
            problem = "the compiled form and Evaluate disagree";
        std::vector<double> grad(static_cast<std::size_t>(n));
        const vexa::Outcome g = form->Gradient(point.data(), grad.data(), ws);
        if (g.ok() && std::memcmp(&g.value, &o.value, sizeof(double)) != 0)
            problem = "the gradient's value differs from the compiled form's";
    }
}

// An eighth of the inputs, chosen by the length of their text, are
// evaluated again under a floating-point environment a host may set: one of
// the other rounding modes, or flush-to-zero with denormals-are-zero, or
// both. There the expression (machine code by now), its tree and a compiled
// form must still agree bit for bit.
inline void CheckHostEnvironment(std::size_t textLength, Expression* expr, int n,
                                 std::vector<std::vector<VEXA_Data>>& sets, std::string& problem)
{
#if defined(__x86_64__)
    if (textLength % 8 != 3)
        return;
    const unsigned pick = static_cast<unsigned>(textLength / 8 % 7) + 1;  // never the default
    const unsigned csr = 0x1F80u | (pick & 3u) << 13 | ((pick & 4u) ? 0x8040u : 0u);
    Expression* tree = TreeOnlyCopy(expr);
    if (!tree)
        return;
    std::unique_ptr<vexa::CompiledExpression> form;
    if (n >= 1 && n <= kMaxFormParams) {
        try {
            form = vexa::CompiledExpression::Make(expr, n);
        } catch (int) {
        }
    }
    std::unique_ptr<vexa::Workspace> ws(form ? new vexa::Workspace(*form) : nullptr);
    const unsigned saved = _mm_getcsr();
    _mm_setcsr(csr);
    for (std::size_t s = 0; s < sets.size(); ++s) {
        const Outcome t = Run(tree, sets[s], problem);
        if (!SameOutcome(Run(expr, sets[s], problem), t))
            problem = "under a host's rounding or flushing, the compiled expression and its tree disagree";
        if (!form || s >= 3)
            continue;
        std::vector<double> point;
        for (const VEXA_Data& v : sets[s])
            point.push_back(v.getValue()[0]);
        const vexa::Outcome o = form->Evaluate(point.data(), *ws);
        const bool same = t.threw ? o.failure == vexa::Failure::kThrown && o.code == t.code
                          : !t.ok ? o.failure == vexa::Failure::kNull
                          : t.values.size() != 1 || t.rows != 1 || t.cols != 1
                              ? o.failure == vexa::Failure::kNotScalar
                              : o.ok() && std::memcmp(&o.value, t.values.data(), sizeof(double)) == 0;
        if (!same)
            problem = "under a host's rounding or flushing, the compiled form and the tree disagree";
    }
    _mm_setcsr(saved);
    tree->Release();
#else
    (void)textLength, (void)expr, (void)n, (void)sets, (void)problem;
#endif
}

// Evaluations an expression takes before it runs machine code: the first
// builds its program, each later one counts towards VEXA_MACHINE_CODE_AFTER
// (read once per process; Setup makes it 1 unless the run sets it). -1: never.
inline int EvaluationsBeforeMachineCode()
{
    static const int n = [] {
        const char* text = std::getenv("VEXA_MACHINE_CODE_AFTER");
        const int after = text && *text ? std::atoi(text) : 64;
        return after < 0 ? -1 : after + 1;
    }();
    return n;
}

// For a third of the inputs (by the length of their text, across the quarter
// that checks the compiled form), calc is evaluated until its next
// evaluation runs machine code, so that every compared evaluation of the
// input does, the first one included. The evaluation that makes the code
// takes one of the value sets, scalars or not.
inline void RunMachineCodeFromNow(std::size_t textLength, ICalculator* calc,
                                  std::vector<std::vector<VEXA_Data>>& sets, std::string& problem)
{
    const int before = EvaluationsBeforeMachineCode();
    if (textLength % 3 != 1 || before < 0 || before > 4)
        return;
    std::vector<VEXA_Data>& set = sets[textLength / 3 % 6];
    for (int i = 0; i < before; ++i)
        Run(calc, set, problem);
}

// Derivatives are taken with respect to at most this many parameters: a text
// of 4095 characters can name hundreds, and each derivative may run up to the
// node budget, which would push one input past the fuzzer's time limit
// without reaching code the first few parameters do not reach.
constexpr int kMaxDerivedParams = 12;

// Derivative trees are never dumped: up to the node budget times their depth
// in indentation would be gigabytes.
constexpr std::size_t kMaxDumpedText = 1024;

inline void Release(ICalculator*& c)
{
    if (c)
        c->Release();
    c = nullptr;
}

// The work of a call grows with the calls in the called function's text, to
// the power of how deeply definitions call each other (documented, not a
// fault); bounding the parentheses of a definition, which every call needs,
// keeps one input within the fuzzer's time limit while a definition may
// still be as deep as a text can be.
constexpr int kMaxDefinitions = 3;
constexpr long kMaxDefinitionParens = 6;

// The functions one input registers, unregistered and released with it.
class Definitions {
public:
    Definitions() = default;
    Definitions(const Definitions&) = delete;
    Definitions& operator=(const Definitions&) = delete;

    // Takes the definition lines at the front of the input; returns how many
    // bytes they took.
    std::size_t Take(const std::uint8_t* data, std::size_t size)
    {
        std::size_t pos = 0;
        while (pos < size && data[pos] == '@') {
            const std::uint8_t* end = static_cast<const std::uint8_t*>(std::memchr(data + pos, '\n', size - pos));
            if (!end)
                break;
            const std::size_t length = std::size_t(end - data) - pos - 1;
            const std::uint8_t* line = data + pos + 1;
            const bool digits = length == 3 && line[1] >= '0' && line[1] <= '9' && line[2] >= '0' && line[2] <= '9';
            if (digits && line[0] == '>')
                Rewire(line[1] - '0', line[2] - '0');
            else if (digits && line[0] == '~')
                m_arity = std::min(kMostArity, (line[1] - '0') * 10 + (line[2] - '0'));
            else if (m_functions.size() < std::size_t(kMaxDefinitions) &&
                     std::count(line, line + length, '(') <= kMaxDefinitionParens)
                Define(Decode(line, length));
            pos += length + 2;
        }
        return pos;
    }

    ~Definitions()
    {
        // Rewired functions may call each other in a loop of references:
        // cut every tree first, then give the functions back.
        for (Expression* f : m_functions)
            if (f)
                f->SetRoot(nullptr);
        for (std::size_t i = 0; i < m_functions.size(); ++i) {
            if (!m_functions[i])
                continue;
            VEXA_WString name(Name(i).c_str());
            if (FunctionFactory::getInstance()->UnRegister(name))
                m_functions[i]->Release();
        }
    }

    // Each '~' of text (zero-terminated) becomes the argument before it,
    // back to the nearest '(' or ',', repeated to the arity set; a long
    // argument, or one '~' too many, is left out.
    void Expand(std::vector<wchar_t>& text) const
    {
        constexpr std::size_t kLongest = 64;
        constexpr int kMostRepeats = 4;
        std::vector<wchar_t> out;
        int repeats = 0;
        for (std::size_t i = 0; i + 1 < text.size(); ++i) {
            if (text[i] != L'~') {
                out.push_back(text[i]);
                continue;
            }
            std::size_t start = out.size();
            while (start > 0 && out[start - 1] != L'(' && out[start - 1] != L',')
                --start;
            if (start == 0 || out.size() - start > kLongest || ++repeats > kMostRepeats)
                continue;
            const std::vector<wchar_t> arg(out.begin() + static_cast<std::ptrdiff_t>(start), out.end());
            for (int k = 1; k < m_arity; ++k) {
                out.push_back(L',');
                out.insert(out.end(), arg.begin(), arg.end());
            }
        }
        out.push_back(L'\0');
        text.swap(out);
    }

private:
    static constexpr int kMostArity = 64;

    static std::wstring Name(std::size_t i) { return L"G" + std::to_wstring(i); }

    void Define(std::vector<wchar_t> text)
    {
        Expand(text);
        VexaParser parser;
        ICalculator* calc = nullptr;
        wchar_t list[] = L"a,b";
        Expression* f = nullptr;
        try {
            if (parser.parse(text.data(), list, &calc))
                f = dynamic_cast<Expression*>(calc);
        } catch (int) {
        }
        VEXA_WString name(Name(m_functions.size()).c_str());
        // The registry keeps the reference it takes; ours goes either way.
        if (f && !FunctionFactory::getInstance()->Register(name, f))
            f = nullptr;
        if (calc)
            calc->Release();
        m_functions.push_back(f);
    }

    void Rewire(std::size_t i, std::size_t j)
    {
        if (i >= m_functions.size() || j >= m_functions.size() || !m_functions[i] || !m_functions[j])
            return;
        Expression* f = m_functions[i];
        m_functions[j]->AddRef();
        f->SetRoot(new FunctionNode(m_functions[j], new INode*[1]{new VariableParam(f, 0)}, 1));
    }

    std::vector<Expression*> m_functions;
    int m_arity = 1;
};

// Returns an empty string, or a description of a broken promise of the
// library's interface (crashes and leaks are left to the sanitizers).
inline std::string RunOneInput(const std::uint8_t* data, std::size_t size)
{
    Setup();
    std::string problem;

    Definitions definitions;
    const std::size_t taken = definitions.Take(data, size);
    data += taken;
    size -= taken;

    const std::uint8_t* newline = static_cast<const std::uint8_t*>(std::memchr(data, '\n', size));
    std::vector<wchar_t> list, text;
    if (newline) {
        list = Decode(data, std::size_t(newline - data));
        text = Decode(newline + 1, size - std::size_t(newline - data) - 1);
    } else {
        text = Decode(data, size);
    }
    definitions.Expand(text);

    VexaParser parser;
    ICalculator* calc = nullptr;
    bool parsed = false;
    bool threw = false;
    try {
        parsed = parser.parse(text.data(), newline ? list.data() : nullptr, &calc);
    } catch (int) {
        threw = true;
    }
    // Copies of the parser carry the name list and flag of the last parse.
    VexaParser copy(parser);
    VexaParser assigned;
    assigned = parser;
    if (copy.getParamsNum() != parser.getParamsNum() || assigned.getParamsNum() != parser.getParamsNum() ||
        copy.canPlot() != parser.canPlot() || assigned.canPlot() != parser.canPlot())
        problem = "a copied parser differs from its original";
    for (int i = 0; i < parser.getParamsNum(); ++i) {
        std::wstring name = static_cast<std::wstring&>(parser.getParam(i));
        (void)name;
    }
    // The review reads any text and list; its pieces lie within what they point into.
    const std::size_t textLength = std::wcslen(text.data());
    const std::size_t listLength = newline ? std::wcslen(list.data()) : 0;
    for (const vexa::TextWarning& w : vexa::ReviewText(text.data(), newline ? list.data() : nullptr)) {
        if (w.position >= 0 && std::size_t(w.position) + std::size_t(w.length) > (w.in_list ? listLength : textLength))
            problem = "a warning points outside its text";
    }
    for (const vexa::CallSpan& s : vexa::LocateCalls(text.data())) {
        if (s.position < 0 || s.length < 1 || std::size_t(s.position) + std::size_t(s.length) > textLength)
            problem = "a call span lies outside the text";
    }

    if (threw) {
        if (!calc)
            return "a failed parse left no Expression behind";
        VEXA_Data r;
        if (calc->Evaluate(0, nullptr, r))
            problem = "an Expression without a root evaluated";
        if (Expression* e = dynamic_cast<Expression*>(calc)) {
            std::vector<std::wstring> lines;
            e->Dump(lines);
            if (!lines.empty())
                problem = "an Expression without a root dumped lines";
            ICalculator* c = e->Copy();
            ICalculator* d = nullptr;
            try {
                d = e->getDerivativeCalculator(0);
            } catch (int) {
            }
            Release(d);
            Release(c);
        }
        Release(calc);
        return problem;
    }
    if (!parsed) {
        if (calc)
            return "a rejected parameter list wrote the out-pointer";
        return problem;
    }
    if (!calc)
        return "parse returned true without a calculator";

    Expression* expr = dynamic_cast<Expression*>(calc);
    if (!expr) {
        Release(calc);
        return "parse did not hand out an Expression";
    }

    const int n = parser.getParamsNum();
    std::vector<std::vector<VEXA_Data>> sets = ValueSets(n);

    RunMachineCodeFromNow(textLength, calc, sets, problem);
    std::vector<Outcome> base;
    for (auto& set : sets)
        base.push_back(Run(calc, set, problem));
    {
        VEXA_Data r;
        try {
            calc->Evaluate(-1, nullptr, r);
        } catch (int) {
        }
    }

    CheckCompiledForm(textLength, calc, n, sets, base, problem);
    CheckHostEnvironment(textLength, expr, n, sets, problem);

    // A copy is an independent tree that must evaluate and dump exactly like
    // the original; evaluated as a tree, it checks the compiled original.
    Expression* dup = TreeOnlyCopy(expr);
    if (dup) {
        for (std::size_t s = 0; s < sets.size(); ++s)
            if (!SameOutcome(Run(dup, sets[s], problem), base[s]))
                problem = "the compiled expression and its tree disagree";
        // A dump line is indented by ten blanks per level, so a dump grows
        // with nodes times depth: hundreds of MiB for the deepest trees of a
        // 4095-character text, with no code path that shorter texts miss.
        if (text.size() <= kMaxDumpedText) {
            std::vector<std::wstring> a, b;
            expr->Dump(a);
            dup->Dump(b);
            if (a != b)
                problem = "a copy dumps differently from its original";
        }
        dup->Release();
    }

    const int derived = n < kMaxDerivedParams ? n : kMaxDerivedParams;
    for (int p = -1; p <= derived; ++p) {
        ICalculator* d = nullptr;
        try {
            d = calc->getDerivativeCalculator(p);
        } catch (int) {
            d = nullptr;
        }
        // Null means the node budget ran out: the other parameters' trees
        // are as large, and spending the budget again only costs time.
        if (!d)
            break;
        Expression* tree = TreeOnlyCopy(static_cast<Expression*>(d));
        RunMachineCodeFromNow(textLength, d, sets, problem);
        for (auto& set : sets) {
            const Outcome compiled = Run(d, set, problem);
            if (tree && !SameOutcome(compiled, Run(tree, set, problem)))
                problem = "a compiled derivative and its tree disagree";
        }
        if (tree)
            tree->Release();
        // Once more for the first parameter, where derivative trees grow most.
        if (p == 0) {
            ICalculator* dd = nullptr;
            try {
                dd = d->getDerivativeCalculator(0);
            } catch (int) {
                dd = nullptr;
            }
            if (dd) {
                Run(dd, sets[0], problem);
                Run(dd, sets[3], problem);
            }
            Release(dd);
        }
        Release(d);
    }

    Release(calc);
    return problem;
}

}  // namespace vexa_fuzz

#endif
