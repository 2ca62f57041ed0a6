// Warnings about texts that parse but probably do not say what their writer
// meant, and where the calls of a text stand in it. Both read the text with
// the parser's own pre-processing and tokenizer, level by level through the
// arguments of calls, as parse does; only the tree's view of a call (its
// value, its implementation) comes from parsing it.
#include <algorithm>
#include <map>
#include <memory>

#include "vexa/calc/arity.h"
#include "vexa/calc/buidin_function.h"
#include "vexa/calc/builtins_impl.h"
#include "vexa/calc/calculator_access.h"
#include "vexa/core/platform.h"
#include "vexa/core/utf8.h"
#include "vexa/parser/function_call.h"
#include "vexa/parser/host_input.h"
#include "vexa/parser/parse_diagnosis.h"
#include "vexa/parser/parse_limits.h"
#include "vexa/parser/text_atoms.h"
#include "vexa/parser/tokenizer.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/tree_text.h"
#include "vexa/tree/tree_walk.h"

namespace vexa {

namespace {

using vexa_parser::Tokenizer;

std::string Quoted(const std::wstring& text)
{
    return "'" + ToUtf8(text) + "'";
}

class Reader {
public:
    explicit Reader(const wchar_t* given) : m_given(given) {}

    // One level: its text, and for every character of it the index of the
    // character of the host's text it came from.
    void Level(const wchar_t* text, const std::vector<int>& toGiven, int depth)
    {
        const std::size_t size = vexa_platform::WLen(text);
        if (depth > vexa_parser::kMaxCallDepth || size >= static_cast<std::size_t>(vexa_parser::kWorkLength))
            return;
        std::unique_ptr<wchar_t[]> work(new wchar_t[vexa_parser::kWorkLength]);
        std::unique_ptr<int[]> raw(new int[vexa_parser::kWorkLength]);
        std::unique_ptr<wchar_t[]> token(new wchar_t[vexa_parser::kTokenLength]);
        Tokenizer::PreParse(text, work.get(), raw.get());
        const int length = static_cast<int>(Tokenizer::lengthAfterTrimmingTailWhite(work.get(), true));
        auto given = [&](int p) { return toGiven[static_cast<std::size_t>(raw[p])]; };
        auto piece = [&](int start, int end) {
            const int from = given(start);
            return std::make_pair(from, given(end - 1) + 1 - from);
        };
        vexa_parser::FailureSlot failure;
        Tokenizer tokenizer(failure);
        int position = 0;
        int open = 0;
        while (position < length) {
            const int start = position;
            TokenKind kind;
            try {
                kind = tokenizer.getNextToken(position, work.get(), token.get());
            } catch (int) {
                return;  // what parse refuses, its diagnosis explains
            }
            switch (kind) {
            case TokenKind::kNumber:
            case TokenKind::kName: {
                const std::pair<int, int> p = piece(start, position);
                atoms.push_back({p.first, p.second, false});
            }
                if (token[0] != L'{' && !Contiguous(given, start, position))
                    Warn(kind == TokenKind::kNumber ? TextWarningKind::kJoinedNumber : TextWarningKind::kJoinedName,
                         piece(start, position), token.get());
                if (kind == TokenKind::kNumber)
                    CheckRadianMark(token.get(), piece(start, position));
                else
                    CheckCase(token.get(), piece(start, position));
                break;
            case TokenKind::kOperator:
                if (token[0] == L'!' || token[0] == L'@')
                    atoms.push_back({given(start), 1, true});
                CheckOperator(token[0], given(start));
                if (token[0] == L'(')
                    ++open;
                else if (token[0] == L')' && open-- == 0) {
                    StrayParenthesis(given(start));
                    open = 0;
                }
                break;
            case TokenKind::kCall:
                Call(work.get(), token.get(), start, piece(start, position), given, depth);
                break;
            default:
                return;
            }
        }
    }

    void Review(const wchar_t* text)
    {
        std::vector<int> identity(vexa_platform::WLen(text) + 1);
        for (std::size_t i = 0; i < identity.size(); ++i)
            identity[i] = static_cast<int>(i);
        Level(text, identity, 0);
    }

    std::vector<CallSpan> calls;
    std::vector<vexa_parser::Atom> atoms;
    std::vector<TextWarning> warnings;

private:
    using TokenKind = vexa_parser::TokenKind;

    template <class Given>
    static bool Contiguous(const Given& given, int start, int end)
    {
        for (int p = start + 1; p < end; ++p) {
            if (given(p) != given(p - 1) + 1)
                return false;
        }
        return true;
    }

    void Warn(TextWarningKind kind, std::pair<int, int> at, const std::wstring& read)
    {
        TextWarning w;
        w.kind = kind;
        w.position = at.first;
        w.length = at.second;
        const std::wstring typed(m_given + at.first, static_cast<std::size_t>(at.second));
        switch (kind) {
        case TextWarningKind::kJoinedNumber:
            w.message = Quoted(typed) + " is read as the one number " + ToUtf8(read) +
                        ": spaces are removed before parsing; write an operator between numbers";
            break;
        case TextWarningKind::kJoinedName:
            w.message = Quoted(typed) + " is read as the one name " + ToUtf8(read) +
                        ": spaces are removed before parsing; write an operator between names";
            break;
        case TextWarningKind::kSpacedStars:
            w.message = Quoted(typed) + " is read as '**', the power: spaces are removed before parsing";
            break;
        case TextWarningKind::kSignMarker:
            w.message = read == L"@" ? "'@' is the parser's own mark of a unary minus: typed, it negates the "
                                       "operand beside it (5@ is -5); write '-'"
                                     : "'!' is the parser's own mark of a unary plus: typed, it is ignored "
                                       "(x! is x)";
            break;
        default:
            w.message = Quoted(typed) + " is read as " + ToUtf8(read) +
                        ": what follows the radian mark R of a number is ignored";
            break;
        }
        warnings.push_back(std::move(w));
    }

    void CheckRadianMark(const wchar_t* number, std::pair<int, int> at)
    {
        for (const wchar_t* p = number; *p; ++p) {
            if ((*p == L'R' || *p == L'r') && p[1])
                return Warn(TextWarningKind::kIgnoredAfterRadian, at, std::wstring(number, p + 1));
        }
    }

    void CheckOperator(wchar_t op, int at)
    {
        const wchar_t typed = m_given[at];
        if ((op == L'!' || op == L'@') && typed == op)
            return Warn(TextWarningKind::kSignMarker, {at, 1}, std::wstring(1, op));
        if (op == L'^' && typed == L'*' && m_given[at + 1] != L'*') {
            // '^' stands where the first of the two stars was.
            int second = at + 1;
            while (m_given[second] == L' ')
                ++second;
            Warn(TextWarningKind::kSpacedStars, {at, second + 1 - at}, L"^");
        }
    }

    template <class Given>
    void Call(const wchar_t* work, wchar_t* token, int start, std::pair<int, int> at, const Given& given, int depth)
    {
        vexa_parser::CallText call = vexa_parser::SplitCall(token);
        int ignored = 0;
        std::unique_ptr<wchar_t[]> upper(Tokenizer::convertToUpper(call.name.c_str(), ignored));
        calls.push_back({upper.get(), at.first, at.second});
        atoms.push_back({at.first, at.second, false});
        if (vexa_platform::WcsICmp(upper.get(), L"IF") == 0) {
            Tokenizer::pre_parseFunction_IF(token);
            call = vexa_parser::SplitCall(token);
        }
        if (call.open < 0)
            return;
        const int argumentsAt = start + call.open + 1;
        const std::vector<vexa_parser::ArgumentText> arguments = vexa_parser::SplitArguments(call.arguments.c_str());
        CheckCount(upper.get(), arguments, at);
        for (const vexa_parser::ArgumentText& argument : arguments) {
            // The token is the pre-processed text from start on, so an
            // argument's characters map through this level's positions.
            std::vector<int> inner(argument.text.size() + 1);
            for (std::size_t k = 0; k < inner.size(); ++k) {
                const int p = argumentsAt + argument.begin + static_cast<int>(k);
                inner[k] = work[p] ? given(p) : at.first + at.second;
            }
            Level(argument.text.c_str(), inner, depth + 1);
        }
    }

    // The parser does not refuse a ')' that closes nothing: it groups all
    // that comes before it, so "2*x+1)/2" is (2*x+1)/2.
    void StrayParenthesis(int at)
    {
        TextWarning w;
        w.kind = TextWarningKind::kStrayParenthesis;
        w.position = at;
        w.length = 1;
        w.message = "this ')' closes no '(': everything before it is grouped as if a '(' stood at the start, "
                    "so 2*x+1)/2 reads as (2*x+1)/2";
        warnings.push_back(std::move(w));
    }

    // Names are matched without regard to case, so two spellings are one
    // parameter; the later spelling is flagged once.
    void CheckCase(const wchar_t* name, std::pair<int, int> at)
    {
        if (name[0] == L'{')
            return;
        const std::wstring written(name);
        int ignored = 0;
        std::unique_ptr<wchar_t[]> upper(Tokenizer::convertToUpper(name, ignored));
        const std::wstring key(upper.get());
        if (key == L"PI" || key == L"RTOD" || key == L"DTOR")
            return;
        const auto it = m_spellings.find(key);
        if (it == m_spellings.end()) {
            m_spellings[key] = {written};
            return;
        }
        std::vector<std::wstring>& seen = it->second;
        if (std::find(seen.begin(), seen.end(), written) != seen.end())
            return;
        seen.push_back(written);
        TextWarning w;
        w.kind = TextWarningKind::kCaseOnlyNames;
        w.position = at.first;
        w.length = at.second;
        w.message = Quoted(written) + " and " + Quoted(seen.front()) +
                    " are one parameter: names are matched without regard to case";
        warnings.push_back(std::move(w));
    }

    // Built-ins refuse other counts while parsing; a registered function
    // takes whatever it is given and reads a missing parameter as no value.
    void CheckCount(const std::wstring& name, const std::vector<vexa_parser::ArgumentText>& arguments,
                    std::pair<int, int> at)
    {
        int count = 0;
        for (const vexa_parser::ArgumentText& argument : arguments)
            count += argument.text.empty() ? 0 : 1;
        int least = 0;
        int most = 0;
        bool builtIn = false;
        if (!AcceptedCounts(name, least, most, builtIn) || builtIn || (count >= least && count <= most))
            return;
        TextWarning w;
        w.kind = TextWarningKind::kArgumentCount;
        w.position = at.first;
        w.length = at.second;
        w.function = name;
        w.message = ToUtf8(name) + " is called with " + std::to_string(count) +
                    (count == 1 ? " argument" : " arguments") + ", but " + TakesArguments(name);
        warnings.push_back(std::move(w));
    }

    const wchar_t* m_given;
    std::map<std::wstring, std::vector<std::wstring>> m_spellings;
};

bool IsPlaceholder(ICalculator* function)
{
    BuidInFunction* builtIn = dynamic_cast<BuidInFunction*>(function);
    if (!builtIn)
        return false;
    const BuildInFunctionPtr f = vexa_calc::CalculatorAccess::Function(*builtIn);
    return f == vexa_builtins::placeholder1 || f == vexa_builtins::placeholder1to2 ||
           f == vexa_builtins::placeholder1to3 || f == vexa_builtins::placeholder1to4;
}

// The node's value; null when it has none or throws (code then set).
VEXA_Data ValueOf(INode* node, int& code)
{
    code = 0;
    try {
        return node->Calculate();
    } catch (int c) {
        code = c;
        return VEXA_Data();
    }
}

// Warnings that need the tree: calls of constants without a value, and the
// placeholders. Calls are matched to their places by order.
void ReviewTree(ICalculator* calc, const std::vector<std::wstring>& names, const wchar_t* text,
                const std::vector<CallSpan>& spans, std::vector<TextWarning>& out)
{
    std::vector<TreeNodeInfo> nodes;
    WalkTree(calc, [&nodes](const TreeNodeInfo& n) {
        nodes.push_back(n);
        return true;
    }, &names);
    const std::size_t n = nodes.size();
    // Subtree ends and parameter counts, for "this subtree reads no parameter".
    std::vector<std::size_t> end(n), params(n + 1, 0), call(n, spans.size());
    std::vector<std::size_t> open;
    std::size_t calls = 0;
    for (std::size_t i = 0; i < n; ++i) {
        while (!open.empty() && nodes[open.back()].depth >= nodes[i].depth) {
            end[open.back()] = i;
            open.pop_back();
        }
        open.push_back(i);
        params[i + 1] = params[i] + (nodes[i].kind == NodeKind::kParameter ? 1 : 0);
        if (nodes[i].kind == NodeKind::kCall)
            call[i] = calls++;
    }
    for (std::size_t i : open)
        end[i] = n;
    const bool located = calls == spans.size();
    auto shown = [&](std::size_t i, TextWarning& w) {
        if (located && nodes[i].kind == NodeKind::kCall) {
            const CallSpan& s = spans[call[i]];
            w.position = s.position;
            w.length = s.length;
            return std::wstring(text + s.position, static_cast<std::size_t>(s.length));
        }
        return TreeText(nodes[i].node, &names);
    };

    // From the back, so a call's arguments are looked at before the call.
    std::vector<TextWarning> found;
    for (std::size_t i = n; i-- > 0;) {
        const TreeNodeInfo& node = nodes[i];
        if (node.kind == NodeKind::kCall && IsPlaceholder(static_cast<FunctionNode*>(node.node)->m_function)) {
            TextWarning w;
            w.kind = TextWarningKind::kPlaceholder;
            w.function = node.function;
            shown(i, w);
            w.message = ToUtf8(node.function) + " answers the placeholder value 12 whatever its arguments: the "
                                                "library has no measures or forces of its own";
            found.push_back(std::move(w));
        }
        const bool operation = node.kind == NodeKind::kCall || node.kind == NodeKind::kOperator;
        if (!operation || params[end[i]] != params[i + 1])
            continue;
        int code = 0;
        if (ValueOf(node.node, code).getType() != DT_NULL)
            continue;
        // Only where the operands have values: the innermost culprit.
        std::string operands;
        bool operandsFine = true;
        for (std::size_t j = i + 1; j < end[i] && operandsFine; j = end[j]) {
            int c = 0;
            const VEXA_Data v = ValueOf(nodes[j].node, c);
            operandsFine = v.getType() != DT_NULL;
            operands += (operands.empty() ? "" : ", ") + ToUtf8(ValueText(v));
        }
        if (!operandsFine)
            continue;
        TextWarning w;
        w.kind = TextWarningKind::kNoValue;
        w.function = node.function;
        const std::string what = ToUtf8(shown(i, w));
        if (node.kind == NodeKind::kCall)
            w.message = what + " has no value whatever the parameters: " + ToUtf8(node.function) + " refuses (" +
                        operands + ")";
        else
            w.message = what + " cannot be evaluated whatever the parameters (code " + std::to_string(code) + ")" +
                        (node.symbol == L'/' ? ": a division by zero" : "");
        found.push_back(std::move(w));
    }
    std::reverse(found.begin(), found.end());
    out.insert(out.end(), found.begin(), found.end());
}

void ReviewList(const wchar_t* list, std::vector<TextWarning>& out)
{
    const std::size_t size = vexa_platform::WLen(list);
    std::size_t from = 0;
    while (from <= size) {
        std::size_t to = from;
        while (to < size && list[to] != L',')
            ++to;
        std::size_t first = from, last = to;
        while (first < last && list[first] == L' ')
            ++first;
        while (last > first && list[last - 1] == L' ')
            --last;
        const std::wstring written(list + first, last - first);
        if (written.find(L' ') != std::wstring::npos) {
            std::wstring joined;
            for (wchar_t c : written) {
                if (c != L' ')
                    joined += c;
            }
            TextWarning w;
            w.kind = TextWarningKind::kListJoinedName;
            w.in_list = true;
            w.position = static_cast<int>(first);
            w.length = static_cast<int>(last - first);
            w.message = Quoted(written) + " in the name list is the one name " + ToUtf8(joined) +
                        ": spaces are removed; separate names with commas";
            out.push_back(std::move(w));
        }
        from = to + 1;
    }
}

}  // namespace

std::vector<CallSpan> LocateCalls(const wchar_t* text)
{
    Reader reader(text ? text : L"");
    reader.Review(text ? text : L"");
    return reader.calls;
}

}  // namespace vexa

std::vector<vexa_parser::Atom> vexa_parser::LocateAtoms(const wchar_t* text)
{
    vexa::Reader reader(text ? text : L"");
    reader.Review(text ? text : L"");
    return reader.atoms;
}

namespace vexa {

std::vector<TextWarning> ReviewText(const wchar_t* text, const wchar_t* paramNames)
{
    if (!text)
        text = L"";
    std::vector<TextWarning> out;
    if (paramNames)
        ReviewList(paramNames, out);
    Reader reader(text);
    reader.Review(text);
    std::vector<TextWarning>& lexical = reader.warnings;
    std::stable_sort(lexical.begin(), lexical.end(),
                     [](const TextWarning& a, const TextWarning& b) { return a.position < b.position; });
    out.insert(out.end(), lexical.begin(), lexical.end());
    ParseResult parsed = TryParse(text, paramNames);
    // Lists of names with digits or braces are the interfaces' to accept.
    if (parsed.diagnosis.outcome == ParseOutcome::kListRejected)
        parsed = ParseChecked(text, paramNames);
    if (parsed.calc)
        ReviewTree(parsed.calc.get(), parsed.names, text, reader.calls, out);
    return out;
}

}  // namespace vexa
