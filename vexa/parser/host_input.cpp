#include "vexa/parser/host_input.h"

#include <cstdio>
#include <vector>

#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/utf8.h"
#include "vexa/parser/name_list.h"
#include "vexa/parser/parse_limits.h"
#include "vexa/parser/tokenizer.h"
#include "vexa/tree/variable_param.h"

namespace vexa {

namespace {

using vexa_parser::Tokenizer;

bool IsLetter(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

wchar_t Upper(wchar_t c)
{
    return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - (L'a' - L'A')) : c;
}

bool SameNoCase(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (Upper(a[i]) != Upper(b[i]))
            return false;
    }
    return true;
}

std::string Quoted(const std::wstring& name)
{
    return "'" + ToUtf8(name) + "'";
}

// One name of the host's list as written: where it stands, spaces around it
// left out.
struct Listed {
    std::wstring name;
    int position = 0;
};

struct ListCheck {
    bool ok = true;
    ParseProblem problem = ParseProblem::kNone;
    int position = -1;
    int length = 0;
    std::string message;
};

ListCheck Refuse(ParseProblem problem, int position, int length, std::string message)
{
    ListCheck c;
    c.ok = false;
    c.problem = problem;
    c.position = position;
    c.length = length;
    c.message = "the parameter-name list is rejected: " + std::move(message);
    return c;
}

// The comma-separated names.
std::vector<Listed> SplitList(const std::wstring& list)
{
    std::vector<Listed> out;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= list.size(); ++i) {
        if (i < list.size() && list[i] != L',')
            continue;
        std::size_t b = start;
        std::size_t e = i;
        while (b < e && list[b] == L' ')
            ++b;
        while (e > b && list[e - 1] == L' ')
            --e;
        out.push_back({list.substr(b, e - b), static_cast<int>(b)});
        start = i + 1;
    }
    return out;
}

// Whether a text reads name as one name token: a braced name, or a letter
// followed by letters, digits and '{', with an optional closing '}'.
// Otherwise the offset of the first character that breaks it.
int BreakIn(const std::wstring& name)
{
    if (name[0] == L'{') {
        const std::size_t close = name.find(L'}');
        if (close == std::wstring::npos)
            return static_cast<int>(name.size()) - 1;
        return close + 1 == name.size() ? -1 : static_cast<int>(close + 1);
    }
    if (!IsLetter(name[0]))
        return 0;
    for (std::size_t i = 1; i < name.size(); ++i) {
        const wchar_t c = name[i];
        if (IsLetter(c) || Tokenizer::IsDigit(c) || c == L'{')
            continue;
        if (c == L'}' && i + 1 == name.size())
            continue;
        return static_cast<int>(i);
    }
    return -1;
}

std::string CharacterName(wchar_t c)
{
    if (c == L' ')
        return "a space";
    if (c == L'}')
        return "'}'";
    if (c >= 0x21 && c < 0x7F)
        return "'" + std::string(1, static_cast<char>(c)) + "'";
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
    return "the character " + ToUtf8(std::wstring(1, c)) + " (" + code + ")";
}

ListCheck CheckName(const std::vector<Listed>& names, std::size_t k)
{
    const Listed& n = names[k];
    const int length = static_cast<int>(n.name.size());
    if (n.name.empty()) {
        const std::string which = k == 0 ? "the list starts with a comma"
                                  : k + 1 == names.size() ? "the list ends with a comma"
                                                          : "two commas stand in a row";
        return Refuse(ParseProblem::kListEmptyName, n.position, 0,
                      "name " + std::to_string(k + 1) + " is empty (" + which + ")");
    }
    if (n.name[0] == L'{' && n.name.find(L'}') == std::wstring::npos)
        return Refuse(ParseProblem::kListNotAName, n.position, length,
                      Quoted(n.name) + " is not a name: its '{' is never closed");
    const int at = BreakIn(n.name);
    if (at >= 0) {
        if (n.name[static_cast<std::size_t>(at)] == L' ')
            return Refuse(ParseProblem::kListSpaceInName, n.position + at, 1,
                          Quoted(n.name) + " holds a space: names are separated by commas");
        if (at == 0)
            return Refuse(ParseProblem::kListNotAName, n.position, length,
                          Quoted(n.name) + " is not a name: a name begins with a letter or is braced, as {DIST}");
        return Refuse(ParseProblem::kListNotAName, n.position + at, 1,
                      Quoted(n.name) + " is not a name: " + CharacterName(n.name[static_cast<std::size_t>(at)]) +
                          " cannot stand there (names are letters, digits and '{', or braced)");
    }
    double ignored = 0;
    if (n.name[0] != L'{' && vexa_parser::NamedConstant(n.name.c_str(), ignored))
        return Refuse(ParseProblem::kListNamedConstant, n.position, length,
                      Quoted(n.name) + " is a named constant: a text reads it as a number, never as a parameter");
    if (n.name[0] != L'{' && Tokenizer::IsFunction(n.name.c_str()))
        return Refuse(ParseProblem::kListFunctionName, n.position, length,
                      Quoted(n.name) + " is the name of a function");
    for (std::size_t i = 0; i < k; ++i) {
        if (SameNoCase(names[i].name, n.name))
            return Refuse(ParseProblem::kListRepeatedName, n.position, length,
                          Quoted(n.name) + " is given twice (names match without regard to case; the first is " +
                              Quoted(names[i].name) + ")");
    }
    return ListCheck();
}

// Names the parser's own list reading takes: letters and '{' only.
bool Listable(const std::wstring& name)
{
    if (name.size() >= static_cast<std::size_t>(vexa_parser::kListNameLength))
        return false;
    for (wchar_t c : name) {
        if (!IsLetter(c) && c != L'{')
            return false;
    }
    return true;
}

// Moves every parameter leaf of the tree to its index in the host's order.
void Renumber(ICalculator* calc, const std::vector<int>& to)
{
    Expression* e = dynamic_cast<Expression*>(calc);
    INode* root = e ? vexa_calc::ExpressionAccess::Root(*e) : nullptr;
    if (!root)
        return;
    std::vector<VariableParam*> leaves;
    root->getVariableParams(leaves);
    for (VariableParam* leaf : leaves) {
        if (leaf->m_index >= 0 && static_cast<std::size_t>(leaf->m_index) < to.size())
            leaf->m_index = to[static_cast<std::size_t>(leaf->m_index)];
    }
}

}  // namespace

void BlankWhiteSpace(std::wstring& text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        if (c == L'\t' || c == L'\r' || c == L'\n' || c == 0xA0 || (i == 0 && c == 0xFEFF))
            text[i] = L' ';
    }
}

ParseResult ParseChecked(const wchar_t* text, const wchar_t* paramNames)
{
    std::wstring list = paramNames ? paramNames : L"";
    BlankWhiteSpace(list);
    std::vector<Listed> names;
    if (list.find_first_not_of(L' ') != std::wstring::npos)
        names = SplitList(list);
    for (std::size_t k = 0; k < names.size(); ++k) {
        const ListCheck c = CheckName(names, k);
        if (c.ok)
            continue;
        ParseResult refused;
        refused.diagnosis.outcome = ParseOutcome::kListRejected;
        refused.diagnosis.problem = c.problem;
        refused.diagnosis.position = c.position;
        refused.diagnosis.length = c.length;
        refused.diagnosis.message = c.message;
        return refused;
    }

    // The parser lists what it can; the rest it appends as the text names
    // them, and the leaves are then moved to the host's order.
    std::wstring listable;
    std::vector<std::size_t> listedAt;
    for (std::size_t k = 0; k < names.size(); ++k) {
        if (!Listable(names[k].name))
            continue;
        listable += (listable.empty() ? L"" : L",") + names[k].name;
        listedAt.push_back(k);
    }
    std::wstring blanked = text ? text : L"";
    BlankWhiteSpace(blanked);
    ParseResult r = TryParse(text ? blanked.c_str() : nullptr, listable.c_str());
    if (r.diagnosis.outcome != ParseOutcome::kParsed)
        return r;

    std::vector<std::wstring> final;
    for (const Listed& n : names)
        final.push_back(n.name);
    std::vector<int> to(r.names.size());
    bool moved = false;
    for (std::size_t i = 0; i < r.names.size(); ++i) {
        int target = -1;
        if (i < listedAt.size()) {
            target = static_cast<int>(listedAt[i]);
        } else {
            for (std::size_t k = 0; k < names.size() && target < 0; ++k) {
                if (!Listable(names[k].name) && SameNoCase(names[k].name, r.names[i]))
                    target = static_cast<int>(k);
            }
            if (target < 0) {
                target = static_cast<int>(final.size());
                final.push_back(r.names[i]);
            }
        }
        to[i] = target;
        moved = moved || target != static_cast<int>(i);
    }
    if (moved)
        Renumber(r.calc.get(), to);
    r.names = std::move(final);
    return r;
}

}  // namespace vexa
