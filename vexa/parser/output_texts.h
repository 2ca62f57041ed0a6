#ifndef VEXA_PARSER_OUTPUT_TEXTS_H
#define VEXA_PARSER_OUTPUT_TEXTS_H

#include <string>
#include <vector>

#include "vexa/calc/calc_ref.h"
#include "vexa/core/export.h"
#include "vexa/parser/parse_diagnosis.h"

// Several texts read as the outputs of one model over one parameter list, in
// the terms vexa::CompiledSystem::Make takes:
//
//   vexa::ParsedOutputs p = vexa::ParseOutputs({L"SIN(W*TIME)", L"K*X + SIN(W*TIME)"}, L"TIME");
//   auto model = vexa::CompiledSystem::Make(p.outputs(), p.reads, static_cast<int>(p.names.size()));
namespace vexa {

struct ParsedOutputs {
    std::vector<CalcRef> calcs;  // one per text, all or none
    // The host's names, then every further name in order of first
    // appearance across the texts (names match without regard to case; the
    // first spelling stays).
    std::vector<std::wstring> names;
    std::vector<std::vector<int> > reads;  // reads[i][k]: which of names text i's parameter k is
    int failed = -1;                       // the first text that does not parse, or -1
    ParseDiagnosis diagnosis;              // why (a rejected list fails text 0)
    std::vector<ICalculator*> outputs() const
    {
        std::vector<ICalculator*> out;
        for (const CalcRef& c : calcs)
            out.push_back(c.get());
        return out;
    }
};

// Each text as ParseChecked reads it with names.
VEXA_API ParsedOutputs ParseOutputs(const std::vector<std::wstring>& texts, const wchar_t* names);

}  // namespace vexa

#endif
