#include "vexa/parser/evaluation_diagnosis.h"

#include <algorithm>

#include "vexa/calc/arity.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/utf8.h"
#include "vexa/parser/text_atoms.h"
#include "vexa/tree/tree_text.h"
#include "vexa/tree/tree_walk.h"

namespace vexa {

namespace {

struct Probe {
    bool threw = false;
    int code = 0;
    VEXA_Data value;
    bool fine() const { return !threw && value.getType() != DT_NULL; }
};

Probe Try(INode* node)
{
    Probe p;
    try {
        p.value = node->Calculate();
    } catch (int code) {
        p.threw = true;
        p.code = code;
    }
    return p;
}

std::string Shape(const VEXA_Data& v)
{
    int rows = 0;
    int cols = 0;
    v.getDataInfo(rows, cols);
    if (v.getType() == DT_NULL)
        return "no value";
    if (v.getType() == DT_SCALAR)
        return "a number";
    return std::to_string(rows) + " x " + std::to_string(cols);
}

bool IsZero(const VEXA_Data& v)
{
    return v.getType() == DT_SCALAR && v.getValue() && v.getValue()[0] == 0.0;
}

// The tree as a walk meets it, with what the text says of each node.
class Diagnoser {
public:
    Diagnoser(ICalculator* calc, const wchar_t* text, const std::vector<std::wstring>* names)
        : m_text(text), m_names(names)
    {
        WalkTree(calc, [this](const TreeNodeInfo& n) {
            m_nodes.push_back(n);
            return true;
        }, names);
        const std::size_t n = m_nodes.size();
        m_end.assign(n, n);
        std::vector<std::size_t> open;
        for (std::size_t i = 0; i < n; ++i) {
            while (!open.empty() && m_nodes[open.back()].depth >= m_nodes[i].depth) {
                m_end[open.back()] = i;
                open.pop_back();
            }
            open.push_back(i);
        }
        if (!text)
            return;
        // Leaves and calls meet the atoms of the text one for one; where they
        // do not (a tree a host built), nothing is shown as typed.
        std::vector<Atom> atoms = vexa_parser::LocateAtoms(text);
        std::size_t k = 0;
        m_atom.assign(n, -1);
        for (std::size_t i = 0; i < n; ++i) {
            const NodeKind kind = m_nodes[i].kind;
            if (kind == NodeKind::kCall || kind == NodeKind::kConstant || kind == NodeKind::kParameter)
                m_atom[i] = static_cast<int>(k++);
        }
        if (k == atoms.size())
            m_atoms = std::move(atoms);
    }

    bool empty() const { return m_nodes.empty(); }

    EvaluationDiagnosis Run()
    {
        EvaluationDiagnosis d;
        const Probe root = Try(m_nodes[0].node);
        if (root.threw)
            return Thrown(0, root, d);
        if (root.value.getType() == DT_NULL)
            return Null(0, d);
        // A value at the top; strict evaluation still refuses a null inside.
        for (std::size_t i = 1; i < m_nodes.size(); ++i) {
            if (!Try(m_nodes[i].node).fine())
                return Null(i, d);
        }
        return Miscounted(d);
    }

    std::vector<EvaluationDiagnosis> Dropped()
    {
        std::vector<EvaluationDiagnosis> out;
        if (!Try(m_nodes[0].node).fine())
            return out;
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            if (m_nodes[i].kind != NodeKind::kCall)
                continue;
            const Probe call = Try(m_nodes[i].node);
            if (call.threw || call.value.getType() != DT_NULL)
                continue;
            bool given = true;
            for (std::size_t j : Children(i))
                given = given && Try(m_nodes[j].node).fine();
            if (!given)
                continue;
            EvaluationDiagnosis d;
            out.push_back(Null(i, d));
        }
        return out;
    }

private:
    // Every node here has a value, but a registered function given fewer
    // arguments than it has parameters evaluates with the rest unset: the
    // null is inside its own tree, which strict evaluation refuses.
    EvaluationDiagnosis& Miscounted(EvaluationDiagnosis& d)
    {
        for (std::size_t i = 0; i < m_nodes.size(); ++i) {
            const TreeNodeInfo& node = m_nodes[i];
            int least = 0;
            int most = 0;
            bool builtIn = false;
            const std::vector<std::size_t> args = Children(i);
            const int count = static_cast<int>(args.size());
            if (node.kind != NodeKind::kCall || !AcceptedCounts(node.function, least, most, builtIn) ||
                (count >= least && count <= most))
                continue;
            std::string values;
            for (std::size_t j : args)
                values += (values.empty() ? "" : ", ") + ToUtf8(ValueText(Try(m_nodes[j].node).value));
            d.cause = EvaluationCause::kRefusedCall;
            d.function = node.function;
            d.operands = "(" + values + ")";
            Place(i, d);
            d.message = Shown(i) + " calls " + ToUtf8(node.function) + " with " + std::to_string(count) +
                        (count == 1 ? " argument" : " arguments") + ": " + TakesArguments(node.function) +
                        ", and a parameter given no argument has no value inside it";
            return Finish(d);
        }
        return d;
    }

    std::vector<std::size_t> Children(std::size_t i) const
    {
        std::vector<std::size_t> out;
        for (std::size_t j = i + 1; j < m_end[i]; j = m_end[j])
            out.push_back(j);
        return out;
    }

    // Follows the nodes that threw down to the innermost one.
    EvaluationDiagnosis Thrown(std::size_t i, Probe p, EvaluationDiagnosis& d)
    {
        for (;;) {
            bool deeper = false;
            for (std::size_t j : Children(i)) {
                const Probe c = Try(m_nodes[j].node);
                if (c.threw) {
                    i = j;
                    p = c;
                    deeper = true;
                    break;
                }
            }
            if (!deeper)
                break;
        }
        const TreeNodeInfo& node = m_nodes[i];
        d.code = p.code;
        Place(i, d);
        if (node.kind == NodeKind::kParameter) {
            d.cause = EvaluationCause::kParameterWithoutValue;
            d.message = "the parameter " + ParameterName(node) + " was given no value";
            return Finish(d);
        }
        std::vector<Probe> operands;
        std::string values;
        for (std::size_t j : Children(i)) {
            operands.push_back(Try(m_nodes[j].node));
            values += (values.empty() ? "" : ", ") + ToUtf8(ValueText(operands.back().value));
        }
        if (node.kind == NodeKind::kCall) {
            d.cause = EvaluationCause::kCallFailed;
            d.function = node.function;
            d.operands = "(" + values + ")";
            d.message = Shown(i) + ": " + ToUtf8(node.function) + " failed with code " + std::to_string(p.code) +
                        " given " + d.operands;
            const std::string takes = TakesArguments(node.function);
            if (!takes.empty())
                d.message += "; " + takes;
            return Finish(d);
        }
        if (node.kind != NodeKind::kOperator || operands.size() != 2) {
            d.cause = EvaluationCause::kOther;
            d.message = Shown(i) + " stopped with code " + std::to_string(p.code);
            return Finish(d);
        }
        d.op = Symbol(i);
        const bool unary = Unary(i);
        for (std::size_t k = 0; k < 2; ++k) {
            if (operands[k].value.getType() != DT_NULL)
                continue;
            // An operand without a value: the call that refused is the cause.
            const std::wstring op = d.op;
            const std::string where = unary ? "the sign '" + ToUtf8(op) + "'"
                                            : "the operator '" + ToUtf8(op) + "'";
            Null(Children(i)[k], d, false);
            d.code = p.code;
            d.op = op;
            d.message += ", which leaves " + where + " without its " + (k == 0 ? "left" : "right") + " operand";
            return Finish(d);
        }
        if (node.symbol == L'/' && IsZero(operands[1].value) && operands[0].value.getType() == DT_SCALAR) {
            d.cause = EvaluationCause::kDivisionByZero;
            d.operands = ToUtf8(ValueText(operands[0].value)) + " / 0";
            const std::size_t divisor = Children(i)[1];
            d.message = "division by zero in " + Shown(i);
            if (m_nodes[divisor].kind != NodeKind::kConstant)
                d.message += ": the divisor " + Shown(divisor) + " is 0";
            return Finish(d);
        }
        d.cause = EvaluationCause::kShapes;
        d.operands = unary ? Shape(operands[1].value) : Shape(operands[0].value) + " and " + Shape(operands[1].value);
        d.message = unary ? "the sign '" + ToUtf8(d.op) + "' in " + Shown(i) + " cannot take " + d.operands
                          : "the operator '" + ToUtf8(d.op) + "' in " + Shown(i) + " cannot combine " + d.operands;
        return Finish(d);
    }

    // Follows the nodes without a value down to the innermost one.
    EvaluationDiagnosis Null(std::size_t i, EvaluationDiagnosis& d, bool finish = true)
    {
        for (;;) {
            bool deeper = false;
            for (std::size_t j : Children(i)) {
                if (Try(m_nodes[j].node).value.getType() == DT_NULL) {
                    i = j;
                    deeper = true;
                    break;
                }
            }
            if (!deeper)
                break;
        }
        const TreeNodeInfo& node = m_nodes[i];
        Place(i, d);
        std::string values;
        for (std::size_t j : Children(i))
            values += (values.empty() ? "" : ", ") + ToUtf8(ValueText(Try(m_nodes[j].node).value));
        if (node.kind == NodeKind::kCall) {
            d.cause = EvaluationCause::kRefusedCall;
            d.function = node.function;
            d.operands = "(" + values + ")";
            d.message = Shown(i) + " has no value: " + ToUtf8(node.function) + " refuses " + d.operands;
            const std::string takes = TakesArguments(node.function);
            int least = 0;
            int most = 0;
            bool builtIn = false;
            const int count = static_cast<int>(Children(i).size());
            if (!takes.empty() && AcceptedCounts(node.function, least, most, builtIn) &&
                (count < least || count > most))
                d.message += "; " + takes;
        } else if (node.kind == NodeKind::kParameter) {
            d.cause = EvaluationCause::kParameterWithoutValue;
            d.message = "the parameter " + ParameterName(node) + " was given no value";
        } else {
            d.cause = EvaluationCause::kOther;
            d.message = Shown(i) + " has no value";
        }
        return finish ? Finish(d) : d;
    }

    std::string ParameterName(const TreeNodeInfo& node) const
    {
        return node.parameter_name.empty() ? "number " + std::to_string(node.parameter)
                                           : ToUtf8(node.parameter_name);
    }

    // The unary signs are 0 + x and 0 - x, the 0 standing for the sign.
    bool Unary(std::size_t i) const
    {
        const std::vector<std::size_t> c = Children(i);
        return c.size() == 2 && !m_atoms.empty() && m_atom[c[0]] >= 0 &&
               m_atoms[static_cast<std::size_t>(m_atom[c[0]])].sign;
    }

    // The characters a subtree covers in the text as typed.
    bool Span(std::size_t i, int& from, int& to) const
    {
        if (m_atoms.empty())
            return false;
        from = -1;
        to = -1;
        for (std::size_t j = i; j < m_end[i]; ++j) {
            if (m_atom[j] < 0)
                continue;
            const Atom& a = m_atoms[static_cast<std::size_t>(m_atom[j])];
            if (from < 0 || a.position < from)
                from = a.position;
            to = std::max(to, a.position + a.length);
        }
        return from >= 0;
    }

    // An operator's own characters: between its operands' pieces.
    bool OperatorAt(std::size_t i, int& at, int& length) const
    {
        const std::vector<std::size_t> c = Children(i);
        int lf = 0, lt = 0, rf = 0, rt = 0;
        if (c.size() != 2 || !Span(c[0], lf, lt) || !Span(c[1], rf, rt))
            return false;
        if (Unary(i)) {
            at = lf;
            length = 1;
            return true;
        }
        const wchar_t symbol = m_nodes[i].symbol;
        for (int p = lt; p < rf; ++p) {
            const wchar_t ch = m_text[p];
            if (symbol == L'^' && ch == L'*') {
                at = p;
                length = 2;
                return true;
            }
            if (ch == symbol) {
                at = p;
                length = 1;
                return true;
            }
        }
        return false;
    }

    std::wstring Symbol(std::size_t i) const
    {
        int at = 0;
        int length = 0;
        if (OperatorAt(i, at, length))
            return std::wstring(m_text + at, static_cast<std::size_t>(length));
        return std::wstring(1, m_nodes[i].symbol);
    }

    void Place(std::size_t i, EvaluationDiagnosis& d) const
    {
        int from = 0;
        int to = 0;
        if (m_nodes[i].kind == NodeKind::kOperator) {
            if (OperatorAt(i, from, to)) {
                d.position = from;
                d.length = to;
            }
            return;
        }
        if (Span(i, from, to)) {
            d.position = from;
            d.length = to - from;
        }
    }

    // A subtree as typed, or as the tree writes it.
    std::string Shown(std::size_t i) const
    {
        int from = 0;
        int to = 0;
        if (Span(i, from, to)) {
            // The pieces end at the last leaf: take in the parentheses closed
            // after it, or opened before the first.
            int open = 0;
            for (int p = from; p < to; ++p)
                open += m_text[p] == L'(' ? 1 : m_text[p] == L')' ? -1 : 0;
            for (; open > 0 && m_text[to]; ++to) {
                if (m_text[to] == L')')
                    --open;
                else if (m_text[to] != L' ')
                    break;
            }
            for (; open < 0 && from > 0; --from) {
                if (m_text[from - 1] == L'(')
                    ++open;
                else if (m_text[from - 1] != L' ')
                    break;
            }
            return "'" + ToUtf8(std::wstring(m_text + from, static_cast<std::size_t>(to - from))) + "'";
        }
        return "'" + ToUtf8(TreeText(m_nodes[i].node, m_names)) + "'";
    }

    EvaluationDiagnosis& Finish(EvaluationDiagnosis& d) const
    {
        if (d.position >= 0)
            d.message += " (at position " + std::to_string(d.position) + ")";
        return d;
    }

    using Atom = vexa_parser::Atom;
    const wchar_t* m_text;
    const std::vector<std::wstring>* m_names;
    std::vector<TreeNodeInfo> m_nodes;
    std::vector<std::size_t> m_end;
    std::vector<int> m_atom;
    std::vector<Atom> m_atoms;
};

}  // namespace

namespace {

// Makes the nodes read the point: they read the held parameters of the
// calculator's last Evaluate. False for what cannot be diagnosed.
bool Hold(ICalculator* calc, int count, const VEXA_Data* params)
{
    Expression* e = dynamic_cast<Expression*>(calc);
    if (!e || count < 0 || (count > 0 && !params))
        return false;
    std::vector<VEXA_Data> point(params, params + count);
    VEXA_Data ignored;
    try {
        vexa_calc::ExpressionAccess::EvaluateLong(*e, count, point.data(), ignored);
    } catch (int) {
        // The walk finds where.
    }
    return true;
}

}  // namespace

EvaluationDiagnosis DiagnoseEvaluation(ICalculator* calc, int count, const VEXA_Data* params, const wchar_t* text,
                                       const std::vector<std::wstring>* names)
{
    if (!Hold(calc, count, params))
        return EvaluationDiagnosis();
    Diagnoser diagnoser(calc, text, names);
    if (diagnoser.empty())
        return EvaluationDiagnosis();
    return diagnoser.Run();
}

std::vector<EvaluationDiagnosis> DiagnoseDroppedTerms(ICalculator* calc, int count, const VEXA_Data* params,
                                                      const wchar_t* text, const std::vector<std::wstring>* names)
{
    if (!Hold(calc, count, params))
        return {};
    Diagnoser diagnoser(calc, text, names);
    if (diagnoser.empty())
        return {};
    return diagnoser.Dropped();
}

}  // namespace vexa
