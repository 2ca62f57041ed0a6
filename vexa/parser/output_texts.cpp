#include "vexa/parser/output_texts.h"

#include <algorithm>
#include <cwctype>

#include "vexa/parser/host_input.h"

namespace vexa {

namespace {

std::wstring Key(std::wstring name)
{
    for (wchar_t& c : name)
        c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    return name;
}

}  // namespace

ParsedOutputs ParseOutputs(const std::vector<std::wstring>& texts, const wchar_t* names)
{
    ParsedOutputs p;
    std::vector<std::wstring> keys;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        ParseResult r = ParseChecked(texts[i].c_str(), names);
        if (!r.calc) {
            ParsedOutputs failed;
            failed.failed = static_cast<int>(i);
            failed.diagnosis = std::move(r.diagnosis);
            return failed;
        }
        std::vector<int> reads;
        for (const std::wstring& name : r.names) {
            const std::wstring key = Key(name);
            const auto at = std::find(keys.begin(), keys.end(), key);
            reads.push_back(static_cast<int>(at - keys.begin()));
            if (at == keys.end()) {
                keys.push_back(key);
                p.names.push_back(name);
            }
        }
        p.reads.push_back(std::move(reads));
        p.calcs.push_back(std::move(r.calc));
    }
    return p;
}

}  // namespace vexa
