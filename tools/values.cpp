#include "tools/values.h"

#include "tools/numbers.h"
#include "tools/wide.h"
#include "vexa/tree/tree_text.h"

namespace vexa_cli {

namespace {

// A small recursive-descent reader over the VALUE text.
class ValueReader {
public:
    explicit ValueReader(const std::string& t) : m_text(t) {}

    bool Read(VEXA_Data& out, std::string& error, std::size_t& column) {
        Skip();
        bool ok = false;
        if (Peek() == '[') {
            ok = ReadBracketed(out);
        } else {
            double v = 0;
            ok = ReadNumber(v);
            if (ok) out = VEXA_Data(v);
        }
        if (ok) {
            Skip();
            if (Peek() == ',')
                ok = Fail("unexpected ','; the decimal point is '.', and a vector is written in brackets: [1,5]");
            else if (m_pos < m_text.size())
                ok = Fail("unexpected text after the value");
        }
        if (!ok) {
            error = m_error;
            column = m_error_pos;
        }
        return ok;
    }

private:
    char Peek() const { return m_pos < m_text.size() ? m_text[m_pos] : '\0'; }
    void Skip() {
        while (m_pos < m_text.size() && (m_text[m_pos] == ' ' || m_text[m_pos] == '\t')) ++m_pos;
    }
    bool Fail(const std::string& msg) {
        if (m_error.empty()) {
            m_error = msg;
            m_error_pos = m_pos;
        }
        return false;
    }

    bool ReadNumber(double& v) {
        Skip();
        std::size_t start = m_pos;
        while (m_pos < m_text.size()) {
            char c = m_text[m_pos];
            if (c == ',' || c == '[' || c == ']' || c == ' ' || c == '\t') break;
            ++m_pos;
        }
        if (start == m_pos) {
            m_pos = start;
            return Fail("expected a number");
        }
        bool outOfRange = false;
        auto parsed = ParseLanguageNumber(std::string_view(m_text).substr(start, m_pos - start), &outOfRange);
        if (!parsed) {
            const std::string word = m_text.substr(start, m_pos - start);
            m_pos = start;
            if (outOfRange) return Fail("'" + word + "' is beyond the range of a double");
            return Fail("'" + word + "' is not a number (write numbers as expressions do: 1.5, -2, 3E-4, 90D, PI/2)");
        }
        v = *parsed;
        return true;
    }

    // A list of numbers up to the closing ']'; the '[' is already consumed.
    bool ReadRow(std::vector<double>& row) {
        Skip();
        if (Peek() == ']') return Fail("empty brackets: a row needs at least one number");
        for (;;) {
            double v = 0;
            if (Peek() == '[') return Fail("a row holds numbers, not further brackets");
            if (!ReadNumber(v)) return false;
            row.push_back(v);
            Skip();
            if (Peek() == ',') {
                ++m_pos;
                continue;
            }
            if (Peek() == ']') {
                ++m_pos;
                return true;
            }
            if (Peek() == '\0') return Fail("missing ']'");
            return Fail("expected ',' or ']'");
        }
    }

    bool ReadBracketed(VEXA_Data& out) {
        ++m_pos;  // '['
        Skip();
        std::vector<std::vector<double>> rows;
        if (Peek() != '[') {
            rows.emplace_back();
            if (!ReadRow(rows.back())) return false;
        } else {
            for (;;) {
                Skip();
                if (Peek() != '[') return Fail("expected '[' to start the next row");
                std::size_t rowStart = m_pos;
                ++m_pos;
                rows.emplace_back();
                if (!ReadRow(rows.back())) return false;
                if (rows.back().size() != rows.front().size()) {
                    m_pos = rowStart;
                    return Fail("row " + std::to_string(rows.size()) + " has " +
                                std::to_string(rows.back().size()) + " elements but row 1 has " +
                                std::to_string(rows.front().size()));
                }
                Skip();
                if (Peek() == ',') {
                    ++m_pos;
                    continue;
                }
                if (Peek() == ']') {
                    ++m_pos;
                    break;
                }
                return Fail(Peek() == '\0' ? "missing ']'" : "expected ',' or ']'");
            }
        }
        const int r = static_cast<int>(rows.size());
        const int c = static_cast<int>(rows.front().size());
        if (r == 1 && c == 1) {
            out = VEXA_Data(rows[0][0]);
            return true;
        }
        if (c == 1) {
            m_pos = 0;
            return Fail("a column (" + std::to_string(r) +
                        " x 1) cannot be represented: values are scalars, row vectors or "
                        "matrices of at least 2 x 2; write a row vector [a, b, ...] instead");
        }
        VEXA_Data v(r, c);
        double* p = v.getValue();
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < c; ++j) p[i * c + j] = rows[i][j];
        out = v;
        return true;
    }

    const std::string& m_text;
    std::size_t m_pos = 0;
    std::string m_error;
    std::size_t m_error_pos = 0;
};

std::string Caret(const std::string& text, std::size_t column) {
    return "    " + text + "\n    " + std::string(column, ' ') + "^";
}

}  // namespace

bool ParseValue(const std::string& text, VEXA_Data& out, std::string& error, std::size_t& errorColumn) {
    ValueReader reader(text);
    return reader.Read(out, error, errorColumn);
}

bool ParseAssignment(const std::string& arg, Assignment& out, std::string& error) {
    // A braced name may hold any character, '=' included.
    std::size_t eq = std::string::npos;
    bool inBraces = false;
    for (std::size_t i = 0; i < arg.size(); ++i) {
        if (inBraces) {
            if (arg[i] == '}') inBraces = false;
        } else if (arg[i] == '{') {
            inBraces = true;
        } else if (arg[i] == '=') {
            eq = i;
            break;
        }
    }
    if (eq == std::string::npos) {
        error = "'" + arg + "' is not of the form NAME=VALUE (for example x=1.5, v=[1,2,3], m=[[1,2],[3,4]])";
        return false;
    }
    std::string name = arg.substr(0, eq);
    while (!name.empty() && name.back() == ' ') name.pop_back();
    while (!name.empty() && name.front() == ' ') name.erase(0, 1);
    std::string valueText = arg.substr(eq + 1);
    std::string msg;
    std::size_t col = 0;
    if (!ParseValue(valueText, out.value, msg, col)) {
        error = "bad value for parameter '" + name + "': " + msg + "\n" + Caret(arg, eq + 1 + col);
        return false;
    }
    out.name = ToWide(name);
    out.source = arg;
    return true;
}

std::vector<double> Elements(const VEXA_Data& v) {
    std::vector<double> out;
    if (v.getType() == DT_NULL || v.getValue() == nullptr) return out;
    int r = 0, c = 0;
    v.getDataInfo(r, c);
    if (r < 1 || c < 1) return out;
    const double* p = v.getValue();
    out.assign(p, p + static_cast<std::size_t>(r) * c);
    return out;
}

std::string DescribeShape(const VEXA_Data& v) {
    int r = 0, c = 0;
    v.getDataInfo(r, c);
    switch (v.getType()) {
    case DT_SCALAR: return "scalar";
    case DT_VECTOR: return "1 x " + std::to_string(c) + " vector";
    case DT_MATRIX: return std::to_string(r) + " x " + std::to_string(c) + " matrix";
    default: return "null";
    }
}

std::string FormatValue(const VEXA_Data& v) {
    std::string s = ToUtf8(vexa::ValueText(v));
    // The system's "-nan" says nothing a reader needs; NaN is the usual word.
    for (std::size_t at = s.find("nan"); at != std::string::npos; at = s.find("nan", at + 1)) {
        const std::size_t from = at > 0 && s[at - 1] == '-' ? at - 1 : at;
        s.replace(from, at + 3 - from, "NaN");
        at = from + 1;
    }
    return s;
}

}  // namespace vexa_cli
