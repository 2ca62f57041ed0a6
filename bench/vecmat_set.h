#ifndef VEXA_BENCH_VECMAT_SET_H
#define VEXA_BENCH_VECMAT_SET_H

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The vector and matrix set (vecmat_expr.txt) as its header describes it:
// "#@param NAME RxC LO HI" draws every element from [LO, HI] for each
// parameter set, "#@param NAME RxC = V..." is a constant; every other line
// that is neither empty nor a comment is an expression, described by the
// comment directly above it.
namespace vecmat {

struct Param {
    std::string name;
    int rows = 1, cols = 1;
    double lo = 0.0, hi = 0.0;
    std::vector<double> constant;  // rows * cols values, or empty
    int size() const { return rows * cols; }
};

struct Line {
    std::string text;
    std::string description;
};

struct Set {
    std::vector<Param> params;
    std::vector<Line> expressions;

    const Param* Find(const std::string& name) const
    {
        for (const Param& p : params)
            if (p.name == name)
                return &p;
        return nullptr;
    }
};

// False when the file cannot be read or a declaration is malformed.
inline bool Read(const std::string& path, Set* set)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::string line, comment;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.rfind("#@param", 0) == 0) {
            std::istringstream fields(line.substr(7));
            Param p;
            std::string shape, lo;
            char x = 0;
            if (!(fields >> p.name >> shape >> lo))
                return false;
            std::istringstream dims(shape);
            if (!(dims >> p.rows >> x >> p.cols) || x != 'x' || p.rows < 1 || p.cols < 1)
                return false;
            if (lo == "=") {
                double v;
                while (fields >> v)
                    p.constant.push_back(v);
                if (static_cast<int>(p.constant.size()) != p.size())
                    return false;
            } else {
                std::istringstream low(lo);
                if (!(low >> p.lo) || !(fields >> p.hi))
                    return false;
            }
            set->params.push_back(p);
            comment.clear();
        } else if (line.empty()) {
            comment.clear();
        } else if (line[0] == '#') {
            comment = line.substr(line.find_first_not_of("# ") == std::string::npos
                                      ? line.size()
                                      : line.find_first_not_of("# "));
        } else {
            set->expressions.push_back({line, comment});
            comment.clear();
        }
    }
    return true;
}

// Fills `count` parameter sets for one parameter, row-major values one set
// after the other, from a small deterministic generator shared by every
// side of a comparison.
inline void Draw(const Param& p, int count, unsigned* state, std::vector<double>* out)
{
    for (int s = 0; s < count; ++s) {
        for (int e = 0; e < p.size(); ++e) {
            if (!p.constant.empty()) {
                out->push_back(p.constant[e]);
                continue;
            }
            *state = *state * 1664525u + 1013904223u;
            const double f = (*state >> 8) / 16777216.0;
            out->push_back(p.lo + (p.hi - p.lo) * f);
        }
    }
}

}  // namespace vecmat

#endif
