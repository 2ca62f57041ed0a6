#ifndef VEXA_BENCH_VECMAT_NATIVE_H
#define VEXA_BENCH_VECMAT_NATIVE_H

#include <cmath>
#include <type_traits>

#include "native_functions.h"

// The expressions of vecmat_expr.txt written by hand in plain C++, the way a
// model's author would: 1 x 3 rows, 3 x 3 row-major matrices, every
// operation in the order the expression gives it (a row times a matrix sums
// over k in increasing order), so that the values agree with the library's
// to rounding. Each function reads its parameters in the order `names`
// lists them and writes rows * cols values.
namespace vecmat_native {

struct V3 {
    double x, y, z;
};
// A matrix parameter is read where it lies; a computed one is held.
struct MatView {
    const double* m;
};
struct M3 {
    double m[9];
};
inline double At(MatView a, int i) { return a.m[i]; }
inline double At(const M3& a, int i) { return a.m[i]; }
template <class T> struct IsMat : std::false_type {};
template <> struct IsMat<MatView> : std::true_type {};
template <> struct IsMat<M3> : std::true_type {};
template <class A, class B>
using BothMat = std::enable_if_t<IsMat<A>::value && IsMat<B>::value, M3>;

inline V3 Row(const double* p) { return {p[0], p[1], p[2]}; }
inline MatView Mat(const double* p) { return {p}; }
inline V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline V3 operator*(double k, V3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline V3 Cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
template <class B, class = std::enable_if_t<IsMat<B>::value>>
inline V3 operator*(V3 a, const B& b)
{
    return {a.x * At(b, 0) + a.y * At(b, 3) + a.z * At(b, 6), a.x * At(b, 1) + a.y * At(b, 4) + a.z * At(b, 7),
            a.x * At(b, 2) + a.y * At(b, 5) + a.z * At(b, 8)};
}
template <class A, class B>
inline BothMat<A, B> operator*(const A& a, const B& b)
{
    M3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[3 * i + j] = At(a, 3 * i) * At(b, j) + At(a, 3 * i + 1) * At(b, 3 + j) + At(a, 3 * i + 2) * At(b, 6 + j);
    return r;
}
template <class A, class = std::enable_if_t<IsMat<A>::value>>
inline M3 operator*(double k, const A& a)
{
    M3 r;
    for (int i = 0; i < 9; ++i)
        r.m[i] = k * At(a, i);
    return r;
}
template <class A, class B>
inline BothMat<A, B> operator+(const A& a, const B& b)
{
    M3 r;
    for (int i = 0; i < 9; ++i)
        r.m[i] = At(a, i) + At(b, i);
    return r;
}
inline void Put(V3 v, double* out)
{
    out[0] = v.x;
    out[1] = v.y;
    out[2] = v.z;
}
inline void Put(const M3& a, double* out)
{
    for (int i = 0; i < 9; ++i)
        out[i] = a.m[i];
}

using Function = void (*)(const double* const* p, double* out);

struct Case {
    const char* text;   // as in the set
    const char* names;  // the order in which p holds the parameters
    int rows, cols;
    Function function;
};

// The functions are called through pointers, as an expression is: every
// element they write is used, none is computed for nothing.
const Case kCases[] = {
    {"(P1-P2)%F", "P1,P2,F", 1, 3,
     [](const double* const* p, double* out) { Put(Cross(Row(p[0]) - Row(p[1]), Row(p[2])), out); }},
    {"KS*(P2-P1)+CD*(V2-V1)", "KS,P1,P2,CD,V1,V2", 1, 3,
     [](const double* const* p, double* out) {
         Put(p[0][0] * (Row(p[2]) - Row(p[1])) + p[3][0] * (Row(p[5]) - Row(p[4])), out);
     }},
    {"P1+RL*A1", "P1,RL,A1", 1, 3,
     [](const double* const* p, double* out) { Put(Row(p[0]) + Row(p[1]) * Mat(p[2]), out); }},
    {"V1+W1%(RL*A1)", "V1,W1,RL,A1", 1, 3,
     [](const double* const* p, double* out) { Put(Row(p[0]) + Cross(Row(p[1]), Row(p[2]) * Mat(p[3])), out); }},
    {"V2+W2%(RM*A2)-(V1+W1%(RL*A1))", "V2,W2,RM,A2,V1,W1,RL,A1", 1, 3,
     [](const double* const* p, double* out) {
         Put(Row(p[0]) + Cross(Row(p[1]), Row(p[2]) * Mat(p[3])) -
                 (Row(p[4]) + Cross(Row(p[5]), Row(p[6]) * Mat(p[7]))),
             out);
     }},
    {"A1*A2*A3", "A1,A2,A3", 3, 3,
     [](const double* const* p, double* out) { Put(Mat(p[0]) * Mat(p[1]) * Mat(p[2]), out); }},
    {"EYE+SIN(TH)*KX+(1-COS(TH))*KX*KX", "EYE,TH,KX", 3, 3,
     [](const double* const* p, double* out) {
         const double th = p[1][0];
         const MatView kx = Mat(p[2]);
         Put(Mat(p[0]) + std::sin(th) * kx + ((1.0 - std::cos(th)) * kx) * kx, out);
     }},
    {"W1%(W1*J)", "W1,J", 1, 3,
     [](const double* const* p, double* out) { Put(Cross(Row(p[0]), Row(p[0]) * Mat(p[1])), out); }},
    {"(P2-P1)*KB+(V2-V1)*CB", "P1,P2,KB,V1,V2,CB", 1, 3,
     [](const double* const* p, double* out) {
         Put((Row(p[1]) - Row(p[0])) * Mat(p[2]) + (Row(p[4]) - Row(p[3])) * Mat(p[5]), out);
     }},
    {"STEP(TIME,0,0,0.5,1)*F*A1", "TIME,F,A1", 1, 3,
     [](const double* const* p, double* out) {
         Put((native::step(p[0][0], 0.0, 0.0, 0.5, 1.0) * Row(p[1])) * Mat(p[2]), out);
     }},
    {"2*(W1%V2)+W1%(W1%RL)", "W1,V2,RL", 1, 3,
     [](const double* const* p, double* out) {
         const V3 w = Row(p[0]);
         Put(2.0 * Cross(w, Row(p[1])) + Cross(w, Cross(w, Row(p[2]))), out);
     }},
    {"-KS*(Q-Q0)-CD*QD", "KS,Q,Q0,CD,QD", 1, 6,
     [](const double* const* p, double* out) {
         const double ks = p[0][0], cd = p[3][0];
         for (int i = 0; i < 6; ++i)
             out[i] = -ks * (p[1][i] - p[2][i]) - cd * p[4][i];
     }},
};

inline const Case* Find(const char* text)
{
    for (const Case& c : kCases) {
        const char* a = c.text;
        const char* b = text;
        while (*a && *a == *b) {
            ++a;
            ++b;
        }
        if (!*a && !*b)
            return &c;
    }
    return nullptr;
}

}  // namespace vecmat_native

#endif
