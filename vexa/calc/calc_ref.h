#ifndef VEXA_CALC_CALC_REF_H
#define VEXA_CALC_CALC_REF_H

#include "vexa/calc/icalculator.h"

namespace vexa {

// Owns one counted reference to a calculator and gives it back with Release
// when it goes. Whatever hands out a calculator (parse, CreateFunction, Copy,
// getDerivativeCalculator) hands out one reference; wrap it here and no path,
// thrown codes included, forgets to release it. Move-only: a reference has
// one owner.
class CalcRef {
public:
    CalcRef() noexcept = default;
    // Takes over a reference the caller already holds; null is allowed.
    explicit CalcRef(ICalculator* calc) noexcept : m_calc(calc) {}
    ~CalcRef() { reset(); }

    CalcRef(CalcRef&& other) noexcept : m_calc(other.release()) {}
    CalcRef& operator=(CalcRef&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    CalcRef(const CalcRef&) = delete;
    CalcRef& operator=(const CalcRef&) = delete;

    // A further reference to a calculator held elsewhere.
    static CalcRef Share(ICalculator* calc)
    {
        if (calc)
            calc->AddRef();
        return CalcRef(calc);
    }

    ICalculator* get() const noexcept { return m_calc; }
    ICalculator* operator->() const noexcept { return m_calc; }
    explicit operator bool() const noexcept { return m_calc != nullptr; }

    // Hands the reference on; the handle is empty afterwards.
    ICalculator* release() noexcept
    {
        ICalculator* c = m_calc;
        m_calc = nullptr;
        return c;
    }

    void reset(ICalculator* calc = nullptr)
    {
        ICalculator* old = m_calc;
        m_calc = calc;
        if (old)
            old->Release();
    }

    // For out-pointers such as VexaParser::parse's: the handle is emptied and
    // owns whatever is stored through the pointer, even when the call throws.
    ICalculator** receive()
    {
        reset();
        return &m_calc;
    }

private:
    ICalculator* m_calc = nullptr;
};

}  // namespace vexa

#endif
