#ifndef VEXA_CALC_ICALCULATOR_H
#define VEXA_CALC_ICALCULATOR_H

#include "vexa/core/data.h"
#include "vexa/core/export.h"
#include "vexa/core/wstring.h"

namespace vexa_calc {
struct ExpressionAccess;
}

// Reference-counted calculator. A count of 0 means one owner; Release deletes
// the object at 0 and returns true.
class VEXA_API ICalculator {
public:
    virtual ICalculator* getDerivativeCalculator(int paramIndex) = 0;

    bool AddRef();
    bool Release();
    // A negative count, or a null params with a positive count, is refused:
    // false, with result and the held parameters untouched.
    bool Evaluate(int count, VEXA_Data* params, VEXA_Data& result)
    {
        // Inline, so that a host's call goes straight to the fast path: an
        // evaluation of a short expression costs little more than the call.
        if (m_fast_path)
            return m_fast_path(*this, count, params, result);
        return EvaluateLong(count, params, result);
    }
    VEXA_Data& getParam(int index);
    int getParamCount();
    VEXA_Data* getParams();
    VEXA_WString& getName();

    ICalculator(const ICalculator&) = delete;
    ICalculator& operator=(const ICalculator&) = delete;

protected:
    explicit ICalculator(VEXA_WString& name);
    ICalculator();
    virtual bool Calculate(VEXA_Data& result) = 0;
    virtual ~ICalculator();

    VEXA_WString m_name;
    int m_param_count;
    VEXA_Data* m_params;
    int m_ref_count;

private:
    friend struct vexa_calc::ExpressionAccess;

    bool SetParams(int count, VEXA_Data* params);
    // Evaluate without the fast path: SetParams, then Calculate.
    bool EvaluateLong(int count, VEXA_Data* params, VEXA_Data& result);

    // A whole evaluation in one step, for calculators that can do all of
    // Evaluate at once in the common case (an Expression whose tree runs as
    // a program, all values scalars). It gives Evaluate's answer, going the
    // long way itself for whatever it does not cover.
    typedef bool (*FastEvaluate)(ICalculator& self, int count, VEXA_Data* params, VEXA_Data& result);
    FastEvaluate m_fast_path;
};

#endif
