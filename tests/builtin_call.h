#ifndef VEXA_TESTS_BUILTIN_CALL_H
#define VEXA_TESTS_BUILTIN_CALL_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "vexa/calc/calc_ref.h"
#include "vexa/calc/function_factory.h"
#include "vexa/calc/icalculator.h"
#include "vexa/core/data.h"
#include "vexa/core/wstring.h"

// Calls a function the way a host does: a calculator from the registry,
// Evaluate, Release.
inline bool CallFunction(const wchar_t* name, std::vector<VEXA_Data> args, VEXA_Data& result) {
    VEXA_WString key(name);
    vexa::CalcRef calc(FunctionFactory::getInstance()->CreateFunction(key));
    if (!calc) {
        ADD_FAILURE() << "no calculator for a known name";
        return false;
    }
    return calc->Evaluate(static_cast<int>(args.size()), args.data(), result);
}

// A 1 x n row vector (n >= 2) holding the given elements.
inline VEXA_Data RowVector(std::initializer_list<double> elements) {
    VEXA_Data v(1, static_cast<int>(elements.size()));
    double* out = v.getValue();
    for (double e : elements) *out++ = e;
    return v;
}

// The scalar 1.0 repeated count times, as the parser's test evaluation passes.
inline std::vector<VEXA_Data> Ones(int count) {
    return std::vector<VEXA_Data>(static_cast<std::size_t>(count), VEXA_Data(1.0));
}

// True when v is the 1 x 2 vector (7, 8) that tests start results with.
inline bool IsSentinel(const VEXA_Data& v) {
    int rows = 0;
    int cols = 0;
    v.getDataInfo(rows, cols);
    return v.getType() == DT_VECTOR && rows == 1 && cols == 2 && v.getValue()[0] == 7.0 &&
           v.getValue()[1] == 8.0;
}

#endif
