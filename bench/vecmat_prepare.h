#ifndef VEXA_BENCH_VECMAT_PREPARE_H
#define VEXA_BENCH_VECMAT_PREPARE_H

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "vecmat_native.h"
#include "vecmat_set.h"
#include "vexa/vexa.h"

// One expression of the vector and matrix set made ready for both sides:
// its parsed form with the parameters as values of their declared shapes,
// and its native function with pointers to the same numbers.
namespace vecmat {

struct Prepared {
    const Line* line = nullptr;
    const vecmat_native::Case* native = nullptr;
    ICalculator* calc = nullptr;
    int count = 0;                     // parameter sets
    int vexaParams = 0, nativeParams = 0;
    std::vector<std::vector<double>> numbers;  // per declared parameter used
    std::vector<VEXA_Data> values;             // count x vexaParams
    std::vector<const double*> args;           // count x nativeParams
    std::string problem;                       // why it cannot be measured

    Prepared() = default;
    Prepared(const Prepared&) = delete;
    Prepared& operator=(const Prepared&) = delete;
    ~Prepared()
    {
        if (calc)
            calc->Release();
    }
};

inline std::vector<std::string> Split(const std::string& list)
{
    std::vector<std::string> names;
    std::string::size_type from = 0;
    while (from <= list.size()) {
        const std::string::size_type comma = std::min(list.find(',', from), list.size());
        names.push_back(list.substr(from, comma - from));
        from = comma + 1;
    }
    return names;
}

// Fills p for `line`; on failure p->problem says why.
inline void Prepare(const Set& set, const Line& line, int count, unsigned seed, Prepared* p)
{
    p->line = &line;
    p->count = count;
    p->native = vecmat_native::Find(line.text.c_str());
    if (!p->native) {
        p->problem = "no native function";
        return;
    }
    const std::wstring text(line.text.begin(), line.text.end());
    VexaParser parser;
    try {
        if (!parser.parse(text.c_str(), nullptr, &p->calc)) {
            p->problem = "does not parse";
            return;
        }
    } catch (int) {
        p->problem = "does not parse";
        return;
    }
    std::vector<std::string> vexaNames;
    for (int i = 0; i < parser.getParamsNum(); ++i) {
        const wchar_t* w = static_cast<const wchar_t*>(parser.getParam(i));
        vexaNames.emplace_back(w, w + std::wcslen(w));
    }
    const std::vector<std::string> nativeNames = Split(p->native->names);
    // Each declared parameter drawn once, in the native order, so that
    // both sides read the same numbers.
    std::vector<const Param*> declared;
    unsigned state = seed;
    for (const std::string& name : nativeNames) {
        const Param* d = set.Find(name);
        if (!d || std::find(vexaNames.begin(), vexaNames.end(), name) == vexaNames.end()) {
            p->problem = "parameter " + name + " undeclared or unused";
            return;
        }
        declared.push_back(d);
        p->numbers.emplace_back();
        Draw(*d, count, &state, &p->numbers.back());
    }
    if (vexaNames.size() != nativeNames.size()) {
        p->problem = "the native function reads other parameters";
        return;
    }
    p->vexaParams = static_cast<int>(vexaNames.size());
    p->nativeParams = static_cast<int>(nativeNames.size());
    for (int s = 0; s < count; ++s) {
        for (int i = 0; i < p->nativeParams; ++i)
            p->args.push_back(p->numbers[i].data() + s * declared[i]->size());
        for (const std::string& name : vexaNames) {
            const int i = static_cast<int>(std::find(nativeNames.begin(), nativeNames.end(), name) -
                                           nativeNames.begin());
            const Param& d = *declared[i];
            const double* from = p->numbers[i].data() + s * d.size();
            if (d.size() == 1) {
                p->values.emplace_back(from[0]);
            } else {
                p->values.emplace_back(d.rows, d.cols);
                std::copy(from, from + d.size(), p->values.back().getValue());
            }
        }
    }
}

// Largest difference between the two sides over every set, relative to the
// largest element of the native value; -1 when a shape or a null value
// differs or the library throws.
inline double LargestDifference(const Prepared& p)
{
    double worst = 0.0;
    std::vector<double> out(p.native->rows * p.native->cols);
    VEXA_Data result;
    for (int s = 0; s < p.count; ++s) {
        p.native->function(p.args.data() + s * p.nativeParams, out.data());
        try {
            if (!p.calc->Evaluate(p.vexaParams, const_cast<VEXA_Data*>(p.values.data()) + s * p.vexaParams, result))
                return -1.0;
        } catch (int) {
            return -1.0;
        }
        int rows = 0, cols = 0;
        if (!result.getDataInfo(rows, cols) || rows != p.native->rows || cols != p.native->cols ||
            !result.getValue())
            return -1.0;
        double scale = 0.0;
        for (double v : out)
            scale = std::max(scale, std::fabs(v));
        for (std::size_t e = 0; e < out.size(); ++e) {
            const double d = std::fabs(result.getValue()[e] - out[e]);
            const double relative = scale > 0.0 ? d / scale : d;
            if (std::isnan(relative))
                return -1.0;
            worst = std::max(worst, relative);
        }
    }
    return worst;
}

}  // namespace vecmat

#endif
