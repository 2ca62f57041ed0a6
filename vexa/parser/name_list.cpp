#include "vexa/parser/name_list.h"

#include <cstdint>
#include <string>

#include "vexa/calc/function_factory.h"
#include "vexa/core/platform.h"
#include "vexa/parser/parse_limits.h"
#include "vexa/parser/tokenizer.h"

using vexa::ParseProblem;

namespace vexa_parser {

namespace {

struct Constant {
    const wchar_t* name;
    double value;
};

const Constant kNamedConstants[] = {
    {L"PI", 3.141592653589793},
    {L"RTOD", 57.29577951308232},
    {L"DTOR", 0.017453292519943295},
};

// The k-th comma-separated name of a list as written, spaces around it left
// out: where a rejected name stands.
Piece NameAt(const wchar_t* list, std::size_t k)
{
    int start = 0;
    for (std::size_t seen = 0; seen < k && list[start]; ++start) {
        if (list[start] == L',')
            ++seen;
    }
    int end = start;
    while (list[end] && list[end] != L',')
        ++end;
    while (start < end && list[start] == L' ')
        ++start;
    while (end > start && list[end - 1] == L' ')
        --end;
    return Piece{start, end - start};
}

bool Reject(FailureSlot& failure, ParseProblem problem, Piece at, std::wstring detail)
{
    failure.reset(new FailureRecord());
    failure->list = true;
    failure->preprocessed = false;
    failure->problem = problem;
    failure->at = at;
    failure->detail = std::move(detail);
    return false;
}

// Case folded as vexa_platform::WcsICmp folds, so equal names hash equally.
std::size_t HashNoCase(const wchar_t* s)
{
    std::uint64_t h = 1469598103934665603ull;
    for (; s && *s; ++s) {
        const wchar_t c = (*s >= L'A' && *s <= L'Z') ? static_cast<wchar_t>(*s + (L'a' - L'A')) : *s;
        h = (h ^ static_cast<std::uint32_t>(c)) * 1099511628211ull;
    }
    return static_cast<std::size_t>(h);
}

}  // namespace

bool ReadNameList(const wchar_t* list, std::vector<VEXA_WString>& names, FailureSlot& failure)
{
    names.clear();
    if (!list || !list[0])
        return true;

    std::wstring current;
    int position = 0;
    for (;;) {
        const int spaces = position;
        Tokenizer::SkipSpace(position, list);
        const wchar_t c = list[position];
        if (c == L',') {
            names.push_back(VEXA_WString(current.c_str()));
            current.clear();
        } else if (Tokenizer::IsChar(c)) {
            if (current.size() >= static_cast<std::size_t>(vexa_parser::kListNameLength - 1))
                return Reject(failure, ParseProblem::kListNameTooLong, NameAt(list, names.size()), L"");
            current.push_back(c);
        } else if (!c) {
            return Reject(failure, ParseProblem::kListTrailingSpace, Piece{spaces, position - spaces}, L"");
        } else {
            return Reject(failure, ParseProblem::kListCharacter, Piece{position, 1}, std::wstring(1, c));
        }
        ++position;
        if (!list[position]) {
            names.push_back(VEXA_WString(current.c_str()));
            break;
        }
    }

    // Exact spelling on purpose: only a name written like a registry key is
    // refused, so "Sin" passes while "sin" and "SIN" do not.
    FunctionFactory* factory = FunctionFactory::getInstance();
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (factory->IsFunction(names[i]))
            return Reject(failure, ParseProblem::kListFunctionName, NameAt(list, i), names[i].getWChar_t());
    }
    return true;
}

bool NamedConstant(const wchar_t* name, double& value)
{
    for (const Constant& constant : kNamedConstants) {
        if (vexa_platform::WcsICmp(name, constant.name) == 0) {
            value = constant.value;
            return true;
        }
    }
    return false;
}

int NameIndex::Find(const std::vector<VEXA_WString>& names, const wchar_t* name)
{
    while (m_covered < names.size())
        Insert(names, static_cast<int>(m_covered++));
    if (m_slots.empty())
        return -1;
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t h = HashNoCase(name) & mask;; h = (h + 1) & mask) {
        const int slot = m_slots[h];
        if (slot == 0)
            return -1;
        if (vexa_platform::WcsICmp(names[static_cast<std::size_t>(slot - 1)].getWChar_t(), name) == 0)
            return slot - 1;
    }
}

void NameIndex::Insert(const std::vector<VEXA_WString>& names, int index)
{
    if ((m_used + 1) * 2 > m_slots.size()) {
        std::vector<int> old(m_slots.size() < 32 ? 64 : m_slots.size() * 2, 0);
        old.swap(m_slots);
        const std::size_t mask = m_slots.size() - 1;
        for (int slot : old) {
            if (slot == 0)
                continue;
            std::size_t h = HashNoCase(names[static_cast<std::size_t>(slot - 1)].getWChar_t()) & mask;
            while (m_slots[h] != 0)
                h = (h + 1) & mask;
            m_slots[h] = slot;
        }
    }
    const wchar_t* name = names[static_cast<std::size_t>(index)].getWChar_t();
    const std::size_t mask = m_slots.size() - 1;
    std::size_t h = HashNoCase(name) & mask;
    for (; m_slots[h] != 0; h = (h + 1) & mask) {
        // An earlier name of the same spelling keeps the place: the first wins.
        if (vexa_platform::WcsICmp(names[static_cast<std::size_t>(m_slots[h] - 1)].getWChar_t(), name) == 0)
            return;
    }
    m_slots[h] = index + 1;
    ++m_used;
}

int FindName(const std::vector<VEXA_WString>& names, const wchar_t* name, std::unique_ptr<NameIndex>& index)
{
    if (names.size() < kIndexedListSize) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (vexa_platform::WcsICmp(names[i].getWChar_t(), name) == 0)
                return static_cast<int>(i);
        }
        return -1;
    }
    if (!index)
        index.reset(new NameIndex());
    return index->Find(names, name);
}

}  // namespace vexa_parser
