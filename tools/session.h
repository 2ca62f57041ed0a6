#ifndef VEXA_TOOLS_SESSION_H
#define VEXA_TOOLS_SESSION_H

#include <optional>
#include <string>
#include <vector>

#include "tools/values.h"
#include "vexa/vexa.h"

namespace vexa_cli {

// Owns one calculator reference; gives it back when it goes out of scope.
class CalcHandle {
public:
    CalcHandle() = default;
    explicit CalcHandle(ICalculator* c) : m_calc(c) {}
    ~CalcHandle() { Reset(); }
    CalcHandle(CalcHandle&& o) noexcept : m_calc(o.m_calc) { o.m_calc = nullptr; }
    CalcHandle& operator=(CalcHandle&& o) noexcept {
        if (this != &o) {
            Reset();
            m_calc = o.m_calc;
            o.m_calc = nullptr;
        }
        return *this;
    }
    CalcHandle(const CalcHandle&) = delete;
    CalcHandle& operator=(const CalcHandle&) = delete;

    ICalculator* get() const { return m_calc; }
    explicit operator bool() const { return m_calc != nullptr; }
    void Reset() {
        if (m_calc) m_calc->Release();
        m_calc = nullptr;
    }

private:
    ICalculator* m_calc = nullptr;
};

enum class ParseStatus { Ok, ListRejected, SyntaxError };

// An expression parsed with a host parameter list.
struct Parsed {
    ParseStatus status = ParseStatus::SyntaxError;
    int code = 0;  // the thrown error code for SyntaxError
    std::wstring text;
    std::optional<std::wstring> list;  // the host list; none means a null list
    CalcHandle calc;
    std::vector<std::wstring> params;  // final parameter order
    bool can_plot = true;
};

Parsed ParseText(const std::wstring& text, const std::optional<std::wstring>& list);

// Parses with the library and hides the result; true when it parses. Used to
// find which part of a text fails.
bool ParsesAlone(const std::wstring& text, const std::optional<std::wstring>& list, int* code = nullptr);

// Outcome of one Evaluate: a value, a null result, or an int thrown.
struct EvalResult {
    bool ok = false;
    bool thrown = false;
    int code = 0;
    VEXA_Data value;
};

EvalResult EvaluateAt(ICalculator* calc, std::vector<VEXA_Data>& values);

// Derivative calculator for parameter `index`; null with `code` set when the
// library threw, null with code 0 when it gave none.
CalcHandle DerivativeOf(ICalculator* calc, int index, int& code);

// Index of `name` in the final order (ASCII case folded, first match), or -1.
int FindParam(const std::vector<std::wstring>& params, const std::wstring& name);

// Values in the final order from NAME=VALUE assignments. Fails with a message
// naming every parameter that got no value.
bool BindValues(const std::vector<std::wstring>& params, const std::vector<Assignment>& given,
                std::vector<VEXA_Data>& values, std::string& error, std::vector<std::string>* unused);

std::string JoinNames(const std::vector<std::wstring>& names);

}  // namespace vexa_cli

#endif
