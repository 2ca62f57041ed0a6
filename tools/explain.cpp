#include "tools/explain.h"

#include <cmath>
#include <functional>

#include "tools/call_forms.h"
#include "tools/errors.h"
#include "tools/tree_nodes.h"
#include "tools/values.h"
#include "tools/wide.h"
#include "vexa/vexa.h"

namespace vexa_cli {

namespace {

// The tree of a calculator in walk order, with each node's value under the
// parameters of the latest Evaluate, and each call's place in the text.
class TreeView : public TreeNodes {
public:
    TreeView(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params)
        : TreeNodes(calc, &params), m_text(text), m_params(params)
    {
        m_call.assign(size(), -1);
        int calls = 0;
        for (std::size_t i = 0; i < size(); ++i)
            if (node(i).kind == vexa::NodeKind::kCall) m_call[i] = calls++;
        m_spans = vexa::LocateCalls(text.c_str());
        if (m_spans.size() != static_cast<std::size_t>(calls)) m_spans.clear();
        m_values.resize(size());
        m_known.assign(size(), false);
    }

    // The node's value; thrown tells whether it threw (code then holds the int).
    const EvalResult& Value(std::size_t i) {
        if (!m_known[i]) {
            EvalResult& r = m_values[i];
            try {
                r.value = node(i).node->Calculate();
                r.ok = r.value.getType() != DT_NULL;
            } catch (int code) {
                r.thrown = true;
                r.code = code;
            }
            m_known[i] = true;
        }
        return m_values[i];
    }

    bool HasNaN(std::size_t i) {
        for (double v : Elements(Value(i).value))
            if (std::isnan(v)) return true;
        return false;
    }

    // The node as the user wrote it when it is a call, else in the tree's words.
    std::string Text(std::size_t i) const {
        if (m_call[i] >= 0 && !m_spans.empty()) {
            const vexa::CallSpan& s = m_spans[static_cast<std::size_t>(m_call[i])];
            return ToUtf8(m_text.substr(static_cast<std::size_t>(s.position), static_cast<std::size_t>(s.length)));
        }
        return ToUtf8(vexa::TreeText(node(i).node, &m_params));
    }

    void Place(std::size_t i, Culprit& c) const {
        if (m_call[i] < 0 || m_spans.empty()) return;
        c.position = m_spans[static_cast<std::size_t>(m_call[i])].position;
        c.length = m_spans[static_cast<std::size_t>(m_call[i])].length;
    }

    std::string ValueOfText(std::size_t i) {
        const EvalResult& r = Value(i);
        return r.thrown ? "an error" : r.ok ? FormatValue(r.value) : "no value";
    }

    // The innermost node in [from, to) meeting the test, with children that do not.
    std::size_t Innermost(std::size_t from, std::size_t to, const std::function<bool(std::size_t)>& bad) {
        for (std::size_t i = to; i-- > from;) {
            if (!bad(i)) continue;
            bool childBad = false;
            for (std::size_t c : Children(i)) childBad = childBad || bad(c);
            if (!childBad) return i;
        }
        return size();
    }

private:
    const std::wstring& m_text;
    const std::vector<std::wstring>& m_params;
    std::vector<int> m_call;
    std::vector<vexa::CallSpan> m_spans;
    std::vector<EvalResult> m_values;
    std::vector<bool> m_known;
};

// "SQRT(-1) has no value: SQRT refused the argument (-1) [SQRT(x): ...]".
Culprit RefusedCall(TreeView& t, std::size_t i) {
    Culprit c;
    std::string args;
    const std::vector<std::size_t> children = t.Children(i);
    for (std::size_t k : children) args += (args.empty() ? "" : ", ") + t.ValueOfText(k);
    const vexa::TreeNodeInfo& call = t.node(i);
    const vexa::CallForm* f = vexa::FindCallForm(call.function);
    c.message = t.Text(i) + " has no value: " + ToUtf8(call.function) + " refused the argument" +
                (children.size() == 1 ? " " : "s ") + "(" + args + ")" +
                (f ? std::string(" [") + f->form + ": " + f->summary + "]" : std::string());
    t.Place(i, c);
    return c;
}

// The innermost refused call within [from, to), if any.
std::size_t FindRefused(TreeView& t, std::size_t from, std::size_t to) {
    return t.Innermost(from, to, [&t](std::size_t i) {
        const EvalResult& r = t.Value(i);
        return !r.ok && !r.thrown;
    });
}

std::string ShapeText(const EvalResult& r) { return r.ok ? DescribeShape(r.value) : "no value"; }

}  // namespace

Culprit ExplainNull(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params) {
    TreeView t(calc, text, params);
    const std::size_t i = FindRefused(t, 0, t.size());
    if (i == t.size() || t.node(i).kind != vexa::NodeKind::kCall) return Culprit();
    return RefusedCall(t, i);
}

Culprit ExplainThrow(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params) {
    TreeView t(calc, text, params);
    const std::size_t i = t.Innermost(0, t.size(), [&t](std::size_t k) { return t.Value(k).thrown; });
    Culprit c;
    if (i == t.size()) return c;
    const vexa::TreeNodeInfo& n = t.node(i);
    const int code = t.Value(i).code;
    if (n.kind == vexa::NodeKind::kCall) {
        c.message = "the call " + t.Text(i) + " failed: " + DescribeThrownCode(code);
        t.Place(i, c);
        return c;
    }
    const std::vector<std::size_t> ops = t.Children(i);
    if (n.kind != vexa::NodeKind::kOperator || ops.size() != 2 || code != -10001) {
        c.message = t.Text(i) + ": " + DescribeThrownCode(code);
        return c;
    }
    const std::string op(1, static_cast<char>(n.symbol));
    const EvalResult &l = t.Value(ops[0]), &r = t.Value(ops[1]);
    for (std::size_t side : ops) {
        if (t.Value(side).ok) continue;
        // An operand without a value: the refusal inside it is the real mistake.
        const std::size_t refused = FindRefused(t, side, t.End(side));
        Culprit inner = refused < t.size() && t.node(refused).kind == vexa::NodeKind::kCall ? RefusedCall(t, refused)
                                                                                          : Culprit();
        c = inner;
        c.message = "'" + op + "' in " + t.Text(i) + " has an operand without a value" +
                    (inner.message.empty() ? std::string() : ": " + inner.message);
        return c;
    }
    if (n.symbol == L'/' && r.value.getType() == DT_SCALAR && Elements(r.value)[0] == 0.0) {
        c.message = t.Text(i) + " divides by zero (the divisor " + t.Text(ops[1]) + " is 0)";
        return c;
    }
    c.message = "'" + op + "' in " + t.Text(i) + " cannot combine a " + ShapeText(l) + " with a " + ShapeText(r) +
                " (code -10001)";
    return c;
}

Culprit ExplainNaN(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params) {
    TreeView t(calc, text, params);
    const std::size_t i = t.Innermost(0, t.size(), [&t](std::size_t k) { return t.HasNaN(k); });
    Culprit c;
    if (i == t.size()) return c;
    const vexa::TreeNodeInfo& n = t.node(i);
    if (n.kind == vexa::NodeKind::kConstant || n.kind == vexa::NodeKind::kParameter) {
        c.message = t.Text(i) + " is NaN";
        return c;
    }
    std::string operands;
    for (std::size_t k : t.Children(i)) operands += (operands.empty() ? "" : ", ") + t.ValueOfText(k);
    c.message = t.Text(i) + " is NaN, from (" + operands + ")";
    if (n.kind == vexa::NodeKind::kOperator && n.symbol == L'^')
        c.message += ": a negative base with a fractional exponent";
    t.Place(i, c);
    return c;
}

std::vector<Culprit> DroppedTerms(ICalculator* calc, const std::wstring& text,
                                  const std::vector<std::wstring>& params) {
    TreeView t(calc, text, params);
    std::vector<Culprit> out;
    for (std::size_t i = 0; i < t.size(); ++i) {
        if (t.node(i).kind != vexa::NodeKind::kCall) continue;
        const EvalResult& r = t.Value(i);
        if (r.ok || r.thrown) continue;
        bool argsFine = true;
        for (std::size_t k : t.Children(i)) argsFine = argsFine && t.Value(k).ok;
        if (argsFine) out.push_back(RefusedCall(t, i));
    }
    return out;
}

}  // namespace vexa_cli
