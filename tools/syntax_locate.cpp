#include "tools/syntax_locate.h"

#include <cstdio>

#include "tools/session.h"
#include "tools/wide.h"
#include "vexa/vexa.h"

namespace vexa_cli {

namespace {

constexpr std::size_t kMaxText = 4096;

wchar_t At(const std::wstring& s, std::size_t i) { return i < s.size() ? s[i] : L'\0'; }
bool IsLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }
bool IsDigitW(wchar_t c) { return c >= L'0' && c <= L'9'; }
bool IsNameChar(wchar_t c) { return IsLetter(c) || IsDigitW(c) || c == L'{'; }
bool IsOpW(wchar_t c) { return std::wstring(L"!%()*+-/@^").find(c) != std::wstring::npos && c != L'\0'; }
bool IsUnaryContext(wchar_t prev) {
    return prev != L'\0' && std::wstring(L"!%(*+,-/@^").find(prev) != std::wstring::npos;
}
bool IsCSpace(wchar_t c) { return c == L' ' || (c >= 0x09 && c <= 0x0D); }

int SymIndex(wchar_t c) {
    static const wchar_t kSyms[] = L"+-*/()!@^%";
    for (int i = 0; i < 10; ++i)
        if (kSyms[i] == c) return i;
    return -1;
}

int Precede(wchar_t top, wchar_t incoming) {
    static const int kTable[10][10] = {
        {1, 1, -1, -1, -1, 1, -1, -1, -1, -1},  {1, 1, -1, -1, -1, 1, -1, -1, -1, -1},
        {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},     {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
        {-1, -1, -1, -1, -1, 0, -1, -1, -1, -1}, {2, 2, 2, 2, 2, 2, 2, 2, 2, 2},
        {1, 1, 1, 1, -1, 1, -1, -1, 1, 1},      {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},
        {1, 1, 1, 1, -1, 1, -1, -1, -1, 1},     {1, 1, 1, 1, -1, 1, -1, -1, -1, 1}};
    int r = SymIndex(top), c = SymIndex(incoming);
    if (r < 0 || c < 0) return 2;
    return kTable[r][c];
}

std::string DescribeChar(wchar_t c) {
    if (c == L'\t') return "a tab";
    if (c == L'\0') return "the end of the text";
    if (c > 0x20 && c < 0x7F) return std::string("'") + static_cast<char>(c) + "'";
    char buf[32];
    std::snprintf(buf, sizeof buf, "the character U+%04X", static_cast<unsigned>(c));
    return buf;
}

bool IsFunctionName(const std::wstring& name) {
    VEXA_WString key(UpperAscii(name).c_str());
    return FunctionFactory::getInstance()->IsFunction(key);
}

// Splits a call text as the parser does; false (with `pos` at the offending
// character) when no '(' follows the name.
bool SplitCall(const std::wstring& text, CallPiece& piece, std::size_t& pos) {
    piece.text = text;
    pos = 1;
    while (IsNameChar(At(text, pos))) ++pos;
    piece.name = UpperAscii(text.substr(0, pos));
    if (piece.name == L"IF")
        for (auto& c : piece.text)
            if (c == L':') c = L',';
    const std::wstring& call = piece.text;
    while (At(call, pos) == L' ') ++pos;
    if (At(call, pos) != L'(') return false;
    std::wstring argsText;
    for (std::size_t i = pos + 1, depth = 1; i < call.size(); ++i) {
        if (call[i] == L'(') ++depth;
        if (call[i] == L')' && --depth == 0) break;
        argsText += call[i];
    }
    std::wstring cur;
    int depth = 0;
    for (wchar_t c : argsText) {
        if (c == L',' && depth == 0) {
            if (!cur.empty()) piece.args.push_back(cur);
            cur.clear();
            continue;
        }
        if (c == L'(') ++depth;
        if (c == L')') --depth;
        cur += c;
    }
    if (!cur.empty()) piece.args.push_back(cur);
    return true;
}

class Locator {
public:
    Locator(const std::optional<std::wstring>& list) : m_list(list) {}

    // True when an error was found in this level (or below); fills loc.
    bool Level(const std::wstring& raw, const std::vector<std::string>& path, SyntaxLocation& loc) {
        loc.path = path;
        if (raw.size() >= kMaxText) {
            loc.level_text = raw.substr(0, 60) + L"...";
            return NoPos(loc, "the text is " + std::to_string(raw.size()) +
                                  " characters long; at most 4095 are allowed");
        }
        const std::wstring w = PreProcess(raw);
        loc.level_text = w;
        if (w.empty()) return NoPos(loc, "the text is empty (nothing but white space)");

        std::vector<wchar_t> ops;
        int operands = 0;
        std::size_t pos = 0;
        const std::size_t len = w.size();
        while (pos < len) {
            while (At(w, pos) == L' ') ++pos;
            const wchar_t ch = At(w, pos);
            if (IsDigitW(ch) || ch == L'.') {
                if (!Number(w, pos, loc)) return true;
                ++operands;
            } else if (ch == L'{') {
                ++pos;
                while (pos < len && w[pos] != L'}') ++pos;
                if (pos >= len) return Pos(loc, static_cast<int>(len), "the braced name has no closing '}'");
                ++pos;
                ++operands;
            } else if (IsLetter(ch)) {
                const std::size_t start = pos;
                while (IsNameChar(At(w, pos))) ++pos;
                if (At(w, pos) == L'}') ++pos;
                const std::wstring name = w.substr(start, pos - start);
                if (IsFunctionName(name)) {
                    if (!WholeCall(w, pos, name, loc)) return true;
                    const std::wstring call = w.substr(start, pos - start);
                    int code = 0;
                    if (!ParsesAlone(call, m_list, &code)) return Call(call, path, code, loc);
                }
                ++operands;
            } else if (IsOpW(ch)) {
                ++pos;
                bool done = false;
                while (!ops.empty()) {
                    const int rel = Precede(ops.back(), ch);
                    if (rel == -1) {
                        ops.push_back(ch);
                        done = true;
                        break;
                    }
                    if (rel == 0) {
                        ops.pop_back();
                        done = true;
                        break;
                    }
                    if (rel != 1) return Pos(loc, static_cast<int>(pos), "operators in an order the parser cannot read");
                    if (!Reduce(ops, operands, loc)) return true;
                }
                if (!done && ch != L')') ops.push_back(ch);
            } else {
                return Pos(loc, static_cast<int>(pos), DescribeChar(ch) + " cannot start a token here");
            }
        }
        while (!ops.empty())
            if (!Reduce(ops, operands, loc)) return true;
        if (operands > 1)
            return NoPos(loc, "two operands follow each other without an operator between them "
                              "(as in '2(3)' or 'x(y)')");
        if (operands == 0) return NoPos(loc, "there is no operand at all");
        return false;
    }

private:
    static bool NoPos(SyntaxLocation& loc, const std::string& why) {
        loc.code = 0;
        loc.has_position = false;
        loc.reason = why;
        return true;
    }
    static bool Pos(SyntaxLocation& loc, int p, const std::string& why) {
        loc.code = p;
        loc.has_position = true;
        loc.position = p;
        loc.reason = why;
        return true;
    }

    static bool Reduce(std::vector<wchar_t>& ops, int& operands, SyntaxLocation& loc) {
        const wchar_t op = ops.back();
        ops.pop_back();
        if (op == L'(') {
            NoPos(loc, "a '(' is never closed");
            return false;
        }
        const int need = (op == L'!' || op == L'@') ? 1 : 2;
        if (operands < need) {
            std::string sym = op == L'!' ? "unary '+'" : op == L'@' ? "unary '-'" : "'" + ToUtf8(std::wstring(1, op)) + "'";
            NoPos(loc, "the operator " + sym + " is missing an operand");
            return false;
        }
        operands -= need - 1;
        return true;
    }

    // Number token; false (with loc filled) on a malformed number.
    static bool Number(const std::wstring& w, std::size_t& pos, SyntaxLocation& loc) {
        const std::size_t start = pos;
        int points = At(w, pos) == L'.' ? 1 : 0, exps = 0, degs = 0, rads = 0;
        wchar_t prev = At(w, pos);
        ++pos;
        for (;;) {
            const wchar_t c = At(w, pos);
            const bool cont = IsDigitW(c) || c == L'.' || c == L'E' || c == L'D' || c == L'd' || c == L'R' ||
                              c == L'r' || ((c == L'+' || c == L'-') && prev == L'E');
            if (!cont) break;
            const int p = static_cast<int>(pos);
            if (degs > 0) return !Pos(loc, p, "nothing may follow the degree mark 'D' of a number");
            if (c == L'.') {
                if (exps) return !Pos(loc, p, "a number's exponent cannot have a decimal point");
                if (points) return !Pos(loc, p, "a number cannot have a second decimal point");
                ++points;
            }
            if (c == L'E') {
                if (exps) return !Pos(loc, p, "a number cannot have a second exponent 'E'");
                ++exps;
            }
            if (c == L'D' || c == L'd') ++degs;
            if (c == L'R' || c == L'r') ++rads;
            prev = c;
            ++pos;
        }
        if (rads > 1) return !Pos(loc, static_cast<int>(start), "a number cannot have a second radian mark 'R'");
        return true;
    }

    static bool WholeCall(const std::wstring& w, std::size_t& pos, const std::wstring& name, SyntaxLocation& loc) {
        const std::string n = ToUtf8(UpperAscii(name));
        while (At(w, pos) == L' ') ++pos;
        if (At(w, pos) != L'(')
            return !Pos(loc, static_cast<int>(pos), n + " is a function and must be followed by '(' and its arguments");
        ++pos;
        if (pos >= w.size())
            return !Pos(loc, static_cast<int>(pos), "the call of " + n + " ends right after its '('");
        int depth = 1;
        do {
            const wchar_t c = w[pos];
            if (c == L'(') ++depth;
            if (c == L')') --depth;
            ++pos;
        } while (pos < w.size() && depth != 0);
        if (depth != 0)
            return !Pos(loc, static_cast<int>(pos), "the parentheses of the call of " + n + " are not closed");
        return true;
    }

    // A call that fails on its own: an argument, or the call itself.
    bool Call(const std::wstring& text, std::vector<std::string> path, int code, SyntaxLocation& loc) {
        CallPiece piece;
        std::size_t pos = 0;
        const bool hasParen = SplitCall(text, piece, pos);
        const std::wstring& call = piece.text;
        const std::wstring& name = piece.name;
        const std::vector<std::wstring>& args = piece.args;
        loc.path = path;
        loc.level_text = call;
        if (!hasParen) return Pos(loc, static_cast<int>(pos), "'(' expected after the function name");

        const std::string n = ToUtf8(name);
        for (std::size_t i = 0; i < args.size(); ++i) {
            int argCode = 0;
            if (ParsesAlone(args[i], m_list, &argCode)) continue;
            std::vector<std::string> inner = path;
            inner.push_back("argument " + std::to_string(i + 1) + " of " + n);
            if (Level(args[i], inner, loc)) return true;
            // The library rejects the argument but the tool sees nothing wrong.
            loc.path = inner;
            loc.level_text = PreProcess(args[i]);
            loc.code = argCode;
            loc.has_position = argCode != 0 && argCode != 100;
            loc.position = argCode;
            loc.reason.clear();
            return true;
        }
        loc.refused_call = true;
        loc.call_name = name;
        loc.call_text = call;
        loc.call_args = static_cast<int>(args.size());
        loc.code = code;
        loc.has_position = false;
        return true;
    }

    const std::optional<std::wstring>& m_list;
};

}  // namespace

std::wstring PreProcess(const std::wstring& text) {
    std::wstring out;
    if (text.empty()) return out;
    out.resize(text.size() + 1);
    bool braces = false;
    wchar_t prev = L'(';  // so that a sign at the very start is unary
    std::size_t in = 0, n = 0;
    do {
        if (braces) {
            const wchar_t ch = At(text, in);
            out[n] = ch;
            if (ch == L'}') braces = false;
        } else {
            while (At(text, in) == L' ') ++in;
            const wchar_t ch = At(text, in);
            if (ch == L'{') {
                out[n] = ch;
                braces = true;
            } else if (ch == L'*' && prev == L'*') {
                --n;
                out[n] = L'^';
            } else if ((ch == L'+' || ch == L'-') && IsUnaryContext(prev)) {
                out[n] = ch == L'+' ? L'!' : L'@';
            } else {
                out[n] = ch;
            }
        }
        // The previous character is always one of the input, never a rewrite.
        prev = At(text, in);
        if (prev == L'\0') break;
        ++in;
        ++n;
    } while (At(text, in) != L'\0');
    out.resize(n);
    while (!out.empty() && IsCSpace(out.back())) out.pop_back();
    return out;
}

std::vector<CallPiece> CallsIn(const std::wstring& text) {
    std::vector<CallPiece> calls;
    const std::wstring w = PreProcess(text);
    std::size_t pos = 0;
    while (pos < w.size()) {
        const wchar_t ch = w[pos];
        if (ch == L'{') {
            while (pos < w.size() && w[pos] != L'}') ++pos;
            ++pos;
        } else if (IsLetter(ch)) {
            const std::size_t start = pos;
            while (IsNameChar(At(w, pos))) ++pos;
            if (At(w, pos) == L'}') ++pos;
            if (!IsFunctionName(w.substr(start, pos - start)) || At(w, pos) != L'(') continue;
            int depth = 0;
            do {
                if (w[pos] == L'(') ++depth;
                if (w[pos] == L')') --depth;
                ++pos;
            } while (pos < w.size() && depth != 0);
            CallPiece piece;
            std::size_t at = 0;
            if (SplitCall(w.substr(start, pos - start), piece, at)) calls.push_back(std::move(piece));
        } else if (IsDigitW(ch) || ch == L'.') {
            // Skip the whole number so an exponent 'E' is not read as a name.
            ++pos;
            while (pos < w.size() && (IsDigitW(w[pos]) || std::wstring(L".EDdRr").find(w[pos]) != std::wstring::npos ||
                                      ((w[pos] == L'+' || w[pos] == L'-') && w[pos - 1] == L'E')))
                ++pos;
        } else {
            ++pos;
        }
    }
    return calls;
}

SyntaxLocation LocateSyntaxError(const std::wstring& text, const std::optional<std::wstring>& list,
                                 int libraryCode) {
    SyntaxLocation loc;
    Locator locator(list);
    if (!locator.Level(text, {}, loc)) {
        loc = SyntaxLocation();
        loc.level_text = PreProcess(text);
        loc.code = libraryCode;
        loc.has_position = false;
        loc.agrees = false;
        return loc;
    }
    loc.agrees = loc.code == libraryCode;
    return loc;
}

}  // namespace vexa_cli
