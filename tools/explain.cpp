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

std::string CallFormNote(const std::wstring& function) {
    const vexa::CallForm* f = function.empty() ? nullptr : vexa::FindCallForm(function);
    return f ? std::string(" [") + f->form + ": " + f->summary + "]" : std::string();
}

Culprit FromDiagnosis(const vexa::EvaluationDiagnosis& d) {
    Culprit c;
    if (d.cause == vexa::EvaluationCause::kNone) return c;
    c.message = d.message;
    if (d.cause == vexa::EvaluationCause::kRefusedCall || d.cause == vexa::EvaluationCause::kCallFailed)
        c.message += CallFormNote(d.function);
    c.position = d.position;
    c.length = d.length;
    return c;
}

const VEXA_Data* PointOf(const std::vector<VEXA_Data>& values) {
    static const VEXA_Data none;
    return values.empty() ? &none : values.data();
}

}  // namespace

Culprit ExplainFailure(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params,
                       const std::vector<VEXA_Data>& values) {
    return FromDiagnosis(vexa::DiagnoseEvaluation(calc, static_cast<int>(values.size()), PointOf(values),
                                                  text.empty() ? nullptr : text.c_str(), &params));
}

std::vector<Culprit> DroppedTerms(ICalculator* calc, const std::wstring& text,
                                  const std::vector<std::wstring>& params, const std::vector<VEXA_Data>& values) {
    std::vector<Culprit> out;
    for (const vexa::EvaluationDiagnosis& d :
         vexa::DiagnoseDroppedTerms(calc, static_cast<int>(values.size()), PointOf(values), text.c_str(), &params))
        out.push_back(FromDiagnosis(d));
    return out;
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

}  // namespace vexa_cli
