#ifndef VEXA_VEXA_C_INTERNAL_H
#define VEXA_VEXA_C_INTERNAL_H

// The C interface's side of a handle, and how its calls turn everything the
// library throws into statuses.

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "vexa/calc/calc_ref.h"
#include "vexa/compiled/compiled_expression.h"
#include "vexa/vexa_c.h"

struct vexa_expr {
    vexa::CalcRef calc;
    std::vector<std::string> names;  // UTF-8, the final order
    // The text as the host passed it and as the parser read it (white space
    // blanked), for messages that point into it; empty for a derivative.
    std::string typed;
    std::wstring text;
    bool can_plot = false;
    // Made when the handle is made, before any other thread can see it, so
    // that the calls that only read it need no synchronisation. Null only
    // when the library could not compile the tree; calls then go through the
    // tree, one thread at a time.
    std::unique_ptr<vexa::CompiledExpression> form;
    // The form's scratch memory for whichever call finds it free (made on
    // first use); a call that finds it taken makes one of its own.
    std::unique_ptr<vexa::Workspace> workspace;
    std::atomic<bool> workspace_taken{false};
    // Evaluate rewrites the calculator's held parameters, so the tree serves
    // one call at a time.
    mutable std::atomic<bool> tree_taken{false};
    // Evaluations of a handle without a form, which any number of threads
    // may ask for, wait here for their turn on the tree. Private copies of
    // the tree would not run in parallel either: a form is missing only
    // where registered functions nest too deep to copy, and every copy
    // would call the same registered calculators, which refuse a second
    // caller with -1001.
    mutable std::mutex tree_queue;
};

namespace vexa_c {

// A failure on its way to the caller's vexa_error.
struct Failure {
    int status;
    int code;
    int position;
    std::string message;
};

[[noreturn]] inline void Fail(int status, const std::string& message, int position = -1)
{
    throw Failure{status, status, position, message};
}

// What a thrown int means, for messages.
std::string CodeMessage(int code);
// An outcome of the compiled form as a failure (o.ok() must be false).
Failure OutcomeFailure(const vexa::Outcome& o);
// Tells in f what part of e's text failed at the point (vexa_param_count
// values), where the tree is free to be evaluated again; f keeps its status
// and code. position: whether f.position may take the byte offset.
void Explain(const vexa_expr& e, const double* point, Failure& f, bool position);
// The same for values of any shape, by a caller that holds the tree.
void ExplainValues(const vexa_expr& e, const VEXA_Data* values, Failure& f, bool position);
// The same for values of any shape, where the tree is free.
void ExplainFree(const vexa_expr& e, const VEXA_Data* values, Failure& f, bool position);

void Clear(vexa_error* err);
void Record(vexa_error* err, const Failure& f);
// Records whatever else escaped a call and returns its status; allocates
// nothing when memory has run out.
int RecordEscaped(vexa_error* err, std::exception_ptr escaped);

// Runs body and returns VEXA_OK, or the status of whatever it threw, which
// then goes to err. Pointer calls keep what body stored.
template <typename Body>
int Status(vexa_error* err, Body body)
{
    Clear(err);
    try {
        body();
        return VEXA_OK;
    } catch (const Failure& f) {
        Record(err, f);
        return f.status;
    } catch (...) {
        return RecordEscaped(err, std::current_exception());
    }
}

// The expression's tree for the lifetime of this object, or VEXA_E_BUSY.
class TreeUse {
public:
    explicit TreeUse(const vexa_expr& e);
    ~TreeUse();
    TreeUse(const TreeUse&) = delete;
    TreeUse& operator=(const TreeUse&) = delete;

private:
    const vexa_expr& m_e;
};

// The expression's tree for the lifetime of this object, after the
// evaluations before it; it waits out a one-thread call (a dump, a
// derivative) rather than refuse.
class TreeTurn {
public:
    explicit TreeTurn(const vexa_expr& e);
    ~TreeTurn();
    TreeTurn(const TreeTurn&) = delete;
    TreeTurn& operator=(const TreeTurn&) = delete;

private:
    std::lock_guard<std::mutex> m_turn;
    const vexa_expr& m_e;
};

// A workspace of e's form for the lifetime of this object.
class WorkspaceUse {
public:
    explicit WorkspaceUse(vexa_expr& e);
    ~WorkspaceUse();
    WorkspaceUse(const WorkspaceUse&) = delete;
    WorkspaceUse& operator=(const WorkspaceUse&) = delete;
    vexa::Workspace& get() { return *m_ws; }

private:
    vexa_expr& m_e;
    std::unique_ptr<vexa::Workspace> m_own;
    vexa::Workspace* m_ws;
    bool m_shared;
    int m_exceptions;
};

// A handle around a calculator the caller owns; the form is made here.
vexa_expr* MakeHandle(vexa::CalcRef calc, std::vector<std::string> names, bool can_plot);

const vexa_expr& Checked(const vexa_expr* e);
vexa_expr& Checked(vexa_expr* e);
// A copy in memory the host frees with vexa_free_text.
char* NewText(const std::string& text);
// Wide texts as UTF-8 lines, each ending in '\n'.
std::string JoinLines(const std::vector<std::wstring>& lines);

// A call that answers with a text: body returns it, or throws.
template <typename Body>
char* TextCall(vexa_error* err, Body body)
{
    char* text = nullptr;
    Status(err, [&] { text = NewText(body()); });
    return text;
}

}  // namespace vexa_c

#endif
