// Statuses and messages of the C interface.
#include <cstring>
#include <limits>

#include "vexa/core/utf8.h"
#include "vexa/parser/evaluation_diagnosis.h"
#include "vexa/c/vexa_c_internal.h"

namespace vexa_c {

namespace {

struct CodeText {
    int code;
    const char* text;
};

// The codes an evaluation can throw, worded for someone who did not write
// the expression's host.
const CodeText kCodes[] = {
    {-10001, "operands that cannot be combined (code -10001): the operator does not take values of these "
             "shapes, such as a number added to a vector, a sign before a vector, or '%' on anything but "
             "two 1 x 3 vectors"},
    {-1000, "a function without an implementation was called (code -1000)"},
    {-1001, "a registered function was called while a call of it was still running, on another thread or "
            "through itself (code -1001)"},
    {-1002, "the evaluation would nest deeper than the library's stack limit allows (code -1002)"},
    {123, "a parameter was read that was given no value (code 123)"},
    {1000, "a derivative rule met a call with the wrong number of arguments (code 1000)"},
};

// Cuts text to fit the message buffer without splitting a UTF-8 sequence.
void CopyMessage(char* to, std::size_t room, const char* text)
{
    const std::size_t size = std::strlen(text);
    std::size_t n = size < room ? size : room - 1;
    if (n < size) {
        while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80)
            --n;
    }
    std::memcpy(to, text, n);
    to[n] = '\0';
}

}  // namespace

std::string CodeMessage(int code)
{
    for (const CodeText& c : kCodes) {
        if (c.code == code)
            return c.text;
    }
    return "the evaluation stopped with code " + std::to_string(code);
}

Failure OutcomeFailure(const vexa::Outcome& o)
{
    using vexa::Failure;
    switch (o.failure) {
    case Failure::kThrown:
        return {VEXA_E_CODE, o.code, -1, CodeMessage(o.code)};
    case Failure::kNull:
        return {VEXA_E_NULL, VEXA_E_NULL, -1,
                "no value here: a function refused its arguments (such as SQRT or LOG outside its domain), "
                "or a value of a shape it does not take"};
    case Failure::kNotScalar:
        return {VEXA_E_NOT_SCALAR, VEXA_E_NOT_SCALAR, -1, "the value is a vector or a matrix, not a number"};
    case Failure::kRefused:
        return {VEXA_E_REFUSED, VEXA_E_REFUSED, -1,
                "strict evaluation: a function refused its arguments, or a null value arose inside the expression"};
    case Failure::kNoGradient:
        return {VEXA_E_NO_GRADIENT, VEXA_E_NO_GRADIENT, -1,
                "no exact gradient here: part of the expression runs only as a tree at this point (a cross "
                "product or a vector value)"};
    case Failure::kWrongShape:
        return {VEXA_E_SHAPE, VEXA_E_SHAPE, -1, "the value has another shape than the one asked for"};
    default:
        return {VEXA_E_INTERNAL, VEXA_E_INTERNAL, -1, "the evaluation failed for a reason not known here"};
    }
}

void ExplainValues(const vexa_expr& e, const VEXA_Data* values, Failure& f, bool position)
{
    try {
        std::vector<std::wstring> names;
        for (const std::string& name : e.names)
            names.push_back(vexa::FromUtf8(name));
        const vexa::EvaluationDiagnosis d =
            vexa::DiagnoseEvaluation(e.calc.get(), static_cast<int>(names.size()), values,
                                     e.text.empty() ? nullptr : e.text.c_str(), &names);
        // A registered function the tree shares with other handles may be
        // busy on another thread just now: that is no cause of this point.
        if (d.cause == vexa::EvaluationCause::kNone || (d.code == -1001 && f.code != -1001))
            return;
        std::string message = d.message;
        if (f.status == VEXA_E_CODE)
            message += " (code " + std::to_string(f.code) + ")";
        else if (f.status == VEXA_E_REFUSED)
            message = "strict evaluation: " + message;
        f.message = message;
        if (position && d.position >= 0 && !e.typed.empty()) {
            const std::size_t at = vexa::Utf8Offset(e.typed, static_cast<std::size_t>(d.position));
            f.position = at > static_cast<std::size_t>(std::numeric_limits<int>::max()) ? -1 : static_cast<int>(at);
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        // Nothing else is expected; the general message stays.
    }
}

void ExplainFree(const vexa_expr& e, const VEXA_Data* values, Failure& f, bool position)
{
    if (!e.calc || (!values && !e.names.empty()))
        return;
    // Only a tree no other thread works on; otherwise the general message stays.
    if (e.tree_taken.exchange(true, std::memory_order_acquire))
        return;
    struct Release {
        const vexa_expr& e;
        ~Release() { e.tree_taken.store(false, std::memory_order_release); }
    } release{e};
    ExplainValues(e, values, f, position);
}

void Explain(const vexa_expr& e, const double* point, Failure& f, bool position)
{
    if (!point && !e.names.empty())
        return;
    std::vector<VEXA_Data> values;
    for (std::size_t k = 0; k < e.names.size(); ++k)
        values.push_back(VEXA_Data(point[k]));
    ExplainFree(e, values.data(), f, position);
}

void Clear(vexa_error* err)
{
    if (!err)
        return;
    err->code = VEXA_OK;
    err->position = -1;
    err->message[0] = '\0';
}

void Record(vexa_error* err, const Failure& f)
{
    if (!err)
        return;
    err->code = f.code;
    err->position = f.position;
    CopyMessage(err->message, sizeof err->message, f.message.c_str());
}

int RecordEscaped(vexa_error* err, std::exception_ptr escaped)
{
    const char* unknown = "the library stopped on an exception of unknown type";
    int status = VEXA_E_INTERNAL;
    try {
        try {
            std::rethrow_exception(escaped);
        } catch (int code) {
            Record(err, {VEXA_E_CODE, code, -1, CodeMessage(code)});
            return VEXA_E_CODE;
        } catch (const std::bad_alloc&) {
            status = VEXA_E_MEMORY;
        } catch (const std::exception& e) {
            Record(err, {VEXA_E_INTERNAL, VEXA_E_INTERNAL, -1, std::string("the library stopped: ") + e.what()});
            return VEXA_E_INTERNAL;
        } catch (...) {
        }
    } catch (const std::bad_alloc&) {
        // Even the message found no memory.
        status = VEXA_E_MEMORY;
    }
    if (err) {
        err->code = status;
        err->position = -1;
        CopyMessage(err->message, sizeof err->message, status == VEXA_E_MEMORY ? "out of memory" : unknown);
    }
    return status;
}

}  // namespace vexa_c
