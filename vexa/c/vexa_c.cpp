// The C interface: handles, parsing, one-point evaluation, derivatives and
// the texts of a tree.
#include "vexa/vexa_c.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <thread>

#include "vexa/calc/expression.h"
#include "vexa/compiled/exact/exact_derivative.h"
#include "vexa/core/utf8.h"
#include "vexa/parser/host_input.h"
#include "vexa/parser/parse_diagnosis.h"
#include "vexa/tree/tree_text.h"
#include "vexa/c/vexa_c_internal.h"

using vexa_c::Fail;
using vexa_c::Status;

namespace vexa_c {

TreeUse::TreeUse(const vexa_expr& e) : m_e(e)
{
    if (e.tree_taken.exchange(true, std::memory_order_acquire))
        Fail(VEXA_E_BUSY, "another thread is working on this expression's tree right now");
}

TreeUse::~TreeUse()
{
    m_e.tree_taken.store(false, std::memory_order_release);
}

TreeTurn::TreeTurn(const vexa_expr& e) : m_turn(e.tree_queue), m_e(e)
{
    while (e.tree_taken.exchange(true, std::memory_order_acquire))
        std::this_thread::yield();
}

TreeTurn::~TreeTurn()
{
    m_e.tree_taken.store(false, std::memory_order_release);
}

WorkspaceUse::WorkspaceUse(vexa_expr& e)
    : m_e(e), m_ws(nullptr), m_shared(false), m_exceptions(std::uncaught_exceptions())
{
    if (e.workspace_taken.exchange(true, std::memory_order_acquire)) {
        m_own.reset(new vexa::Workspace(*e.form));
        m_ws = m_own.get();
        return;
    }
    m_shared = true;
    try {
        if (!e.workspace)
            e.workspace.reset(new vexa::Workspace(*e.form));
    } catch (...) {
        e.workspace_taken.store(false, std::memory_order_release);
        throw;
    }
    m_ws = e.workspace.get();
}

WorkspaceUse::~WorkspaceUse()
{
    if (!m_shared)
        return;
    // A call that stopped half-way (memory ran out) may have left the
    // workspace half set up: the next call makes a new one.
    if (std::uncaught_exceptions() > m_exceptions)
        m_e.workspace.reset();
    m_e.workspace_taken.store(false, std::memory_order_release);
}

vexa_expr* MakeHandle(vexa::CalcRef calc, std::vector<std::string> names, bool can_plot)
{
    std::unique_ptr<vexa_expr> e(new vexa_expr);
    e->form = vexa::CompiledExpression::Make(calc.get(), static_cast<int>(names.size()));
    e->calc = std::move(calc);
    e->names = std::move(names);
    e->can_plot = can_plot;
    return e.release();
}

const vexa_expr& Checked(const vexa_expr* e)
{
    if (!e)
        Fail(VEXA_E_ARGUMENT, "no expression (a null handle)");
    return *e;
}

vexa_expr& Checked(vexa_expr* e)
{
    return const_cast<vexa_expr&>(Checked(static_cast<const vexa_expr*>(e)));
}

std::string JoinLines(const std::vector<std::wstring>& lines)
{
    std::string all;
    for (const std::wstring& line : lines)
        all += vexa::ToUtf8(line) + '\n';
    return all;
}

char* NewText(const std::string& text)
{
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    if (!out)
        throw std::bad_alloc();
    std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

}  // namespace vexa_c

namespace {

using vexa_c::Checked;

// A position the diagnosis counts in characters, as a byte offset into the
// UTF-8 the host passed.
int BytePosition(const char* utf8, int position)
{
    if (position < 0 || !utf8)
        return position;
    const std::size_t at = vexa::Utf8Offset(utf8, static_cast<std::size_t>(position));
    return at > static_cast<std::size_t>(std::numeric_limits<int>::max()) ? -1 : static_cast<int>(at);
}

Expression& TreeOf(const vexa_expr& e)
{
    Expression* x = dynamic_cast<Expression*>(e.calc.get());
    if (!x)
        Fail(VEXA_E_INTERNAL, "the handle holds no expression tree");
    return *x;
}

VEXA_Data ValueIn(const vexa_value& v, std::size_t index)
{
    const std::string which = "parameter " + std::to_string(index) + ": ";
    if (v.rows == 0 && v.cols == 0)
        return VEXA_Data();
    const bool scalar = v.rows == 1 && v.cols == 1;
    const bool row = v.rows == 1 && v.cols >= 2;
    const bool matrix = v.rows >= 2 && v.cols >= 2;
    if (!scalar && !row && !matrix)
        Fail(VEXA_E_ARGUMENT, which + "a " + std::to_string(v.rows) + " x " + std::to_string(v.cols) +
                                  " value is none the language has (0 x 0, 1 x 1, 1 x n or m x n with m, n >= 2)");
    if (!v.data)
        Fail(VEXA_E_ARGUMENT, which + "no data");
    VEXA_Data d(v.rows, v.cols);
    if (d.getType() == DT_NULL)
        Fail(VEXA_E_ARGUMENT, which + "more elements than a value can hold");
    const std::size_t n = static_cast<std::size_t>(v.rows) * static_cast<std::size_t>(v.cols);
    std::memcpy(d.getValue(), v.data, n * sizeof(double));
    return d;
}

}  // namespace

extern "C" {

vexa_expr* vexa_parse(const char* text, const char* params, vexa_error* err)
{
    vexa_expr* made = nullptr;
    Status(err, [&] {
        const std::wstring wtext = text ? vexa::FromUtf8(text) : std::wstring();
        const std::wstring wlist = params ? vexa::FromUtf8(params) : std::wstring();
        vexa::ParseResult r = vexa::ParseChecked(text ? wtext.c_str() : nullptr, params ? wlist.c_str() : nullptr);
        const vexa::ParseDiagnosis& d = r.diagnosis;
        if (d.outcome == vexa::ParseOutcome::kListRejected)
            Fail(VEXA_E_LIST, d.message.rfind("the parameter-name list", 0) == 0 ? d.message : "the parameter-name list is rejected: " + d.message,
                 BytePosition(params, d.position));
        if (d.outcome == vexa::ParseOutcome::kSyntaxError)
            throw vexa_c::Failure{VEXA_E_CODE, d.code, BytePosition(text, d.position), d.message};
        std::vector<std::string> names;
        for (const std::wstring& name : r.names)
            names.push_back(vexa::ToUtf8(name));
        std::unique_ptr<vexa_expr> handle(vexa_c::MakeHandle(std::move(r.calc), std::move(names), r.can_plot));
        handle->typed = text ? text : "";
        handle->text = wtext;
        vexa::BlankWhiteSpace(handle->text);
        made = handle.release();
    });
    return made;
}

char* vexa_review(const char* text, const char* params, vexa_error* err)
{
    return vexa_c::TextCall(err, [&] {
        // Refused as vexa_parse refuses: its code is the status, or the parser's code.
        vexa_error parsed;
        vexa_expr* e = vexa_parse(text, params, &parsed);
        if (!e)
            throw vexa_c::Failure{parsed.code < -20000 ? parsed.code : VEXA_E_CODE, parsed.code, parsed.position,
                                  parsed.message};
        vexa_free(e);
        std::wstring wtext = text ? vexa::FromUtf8(text) : std::wstring();
        std::wstring wlist = params ? vexa::FromUtf8(params) : std::wstring();
        vexa::BlankWhiteSpace(wtext);
        vexa::BlankWhiteSpace(wlist);
        std::string lines;
        for (const vexa::TextWarning& w : vexa::ReviewText(wtext.c_str(), params ? wlist.c_str() : nullptr)) {
            // The checked list refuses a space inside a name, so it joins none.
            if (w.kind == vexa::TextWarningKind::kListJoinedName)
                continue;
            lines += std::to_string(BytePosition(text, w.position)) + "\t" + w.message + "\n";
        }
        return lines;
    });
}

void vexa_free(vexa_expr* e)
{
    delete e;
}

int vexa_param_count(const vexa_expr* e)
{
    return e ? static_cast<int>(e->names.size()) : -1;
}

const char* vexa_param_name(const vexa_expr* e, int index)
{
    if (!e || index < 0 || static_cast<std::size_t>(index) >= e->names.size())
        return nullptr;
    return e->names[static_cast<std::size_t>(index)].c_str();
}

int vexa_can_plot(const vexa_expr* e)
{
    return e && e->can_plot ? 1 : 0;
}

int vexa_eval_value(vexa_expr* e, const vexa_value* params, vexa_value* result, size_t capacity, vexa_error* err)
{
    return Status(err, [&] {
        vexa_expr& x = Checked(e);
        if (!result || (capacity > 0 && !result->data))
            Fail(VEXA_E_ARGUMENT, "no result buffer");
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        result->rows = 0;
        result->cols = 0;
        std::vector<VEXA_Data> values;
        for (std::size_t i = 0; i < x.names.size(); ++i)
            values.push_back(ValueIn(params[i], i));
        vexa_c::TreeUse use(x);
        VEXA_Data out;
        bool ok = false;
        vexa_c::Failure failure;
        try {
            ok = x.calc->Evaluate(static_cast<int>(values.size()), values.data(), out);
            failure = vexa_c::OutcomeFailure({0.0, vexa::Failure::kNull, 0});
        } catch (int code) {
            failure = vexa_c::OutcomeFailure({0.0, vexa::Failure::kThrown, code});
        }
        if (!ok) {
            vexa_c::ExplainValues(x, values.data(), failure, true);
            throw failure;
        }
        out.getDataInfo(result->rows, result->cols);
        const std::size_t n = static_cast<std::size_t>(result->rows) * static_cast<std::size_t>(result->cols);
        if (n > capacity)
            Fail(VEXA_E_TOO_SMALL, "the value has " + std::to_string(result->rows) + " x " +
                                       std::to_string(result->cols) + " elements; the buffer holds " +
                                       std::to_string(capacity));
        std::memcpy(result->data, out.getValue(), n * sizeof(double));
    });
}

vexa_expr* vexa_derivative(vexa_expr* e, int index, vexa_error* err)
{
    vexa_expr* made = nullptr;
    Status(err, [&] {
        vexa_expr& x = Checked(e);
        if (index < 0 || static_cast<std::size_t>(index) >= x.names.size())
            Fail(VEXA_E_ARGUMENT, "no parameter of index " + std::to_string(index) + " (the expression has " +
                                      std::to_string(x.names.size()) + ")");
        vexa::CalcRef d;
        {
            vexa_c::TreeUse use(x);
            d.reset(x.calc->getDerivativeCalculator(index));
        }
        if (!d)
            Fail(VEXA_E_NO_DERIVATIVE, "the derivative tree would grow beyond 1,000,000 nodes or nest deeper than "
                                       "the library allows; the exact gradient (vexa_gradient) has no such limit");
        made = vexa_c::MakeHandle(std::move(d), x.names, x.can_plot);
    });
    return made;
}

vexa_expr* vexa_exact_derivative(vexa_expr* e, int index, vexa_error* err)
{
    vexa_expr* made = nullptr;
    Status(err, [&] {
        vexa_expr& x = Checked(e);
        const int count = static_cast<int>(x.names.size());
        if (index < 0 || index >= count)
            Fail(VEXA_E_ARGUMENT, "no parameter of index " + std::to_string(index) + " (the expression has " +
                                      std::to_string(count) + ")");
        vexa::CalcRef d;
        std::string why;
        {
            vexa_c::TreeUse use(x);
            if (vexa::ExactDerivativeCalculator* exact = dynamic_cast<vexa::ExactDerivativeCalculator*>(x.calc.get()))
                d.reset(exact->getDerivativeCalculator(index));
            else
                d.reset(vexa::ExactDerivative(x.calc.get(), index, &why));
        }
        if (!d)
            Fail(VEXA_E_NO_DERIVATIVE, why.empty() ? "derivatives of this order are not available (at most 4)"
                                                   : "no exact derivative: " + why);
        made = vexa_c::MakeHandle(std::move(d), x.names, x.can_plot);
    });
    return made;
}

char* vexa_dump(const vexa_expr* e, vexa_error* err)
{
    return vexa_c::TextCall(err, [&] {
        const vexa_expr& x = Checked(e);
        std::vector<std::wstring> lines;
        {
            vexa_c::TreeUse use(x);
            TreeOf(x).Dump(lines);
        }
        return vexa_c::JoinLines(lines);
    });
}

char* vexa_tree_text(const vexa_expr* e, vexa_error* err)
{
    return vexa_c::TextCall(err, [&] {
        const vexa_expr& x = Checked(e);
        std::vector<std::wstring> names;
        for (const std::string& name : x.names)
            names.push_back(vexa::FromUtf8(name));
        vexa_c::TreeUse use(x);
        return vexa::ToUtf8(vexa::TreeText(x.calc.get(), &names));
    });
}

void vexa_free_text(char* text)
{
    std::free(text);
}

}  // extern "C"
