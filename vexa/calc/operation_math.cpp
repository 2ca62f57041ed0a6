#include "vexa/calc/operation_math.h"

#include <cmath>

namespace vexa_ops {

namespace {

using vexa_math::kPi;

const double kTwoPi = 2.0 * kPi;

// STEP, STEP5 and HAVSIN over (x, x0, h0, x1, h1): each is h0 + (h1 - h0) *
// shape(a) with a = (x - x0) / (x1 - x0) between x0 and x1.
}  // namespace

void StepPartials(Op op, const double* v, double* g)
{
    const double x = v[0], x0 = v[1], h0 = v[2], x1 = v[3], h1 = v[4];
    for (int k = 0; k < 5; ++k)
        g[k] = 0.0;
    // The same tests as the value: at x0 (and for a NaN x) the h0 side, at
    // x1 the h1 side.
    if (!(x > x0)) {
        g[2] = 1.0;
        return;
    }
    if (x >= x1) {
        g[4] = 1.0;
        return;
    }
    const double width = x1 - x0;
    const double a = (x - x0) / width;
    double shape;
    double slope;
    if (op == kStep) {
        shape = a * a * (3.0 - 2.0 * a);
        slope = 6.0 * a * (1.0 - a);
    } else if (op == kStep5) {
        shape = a * a * a * (10.0 - 15.0 * a + 6.0 * a * a);
        slope = 30.0 * a * a * (1.0 - a) * (1.0 - a);
    } else {
        const double angle = kPi * a - kPi / 2.0;
        shape = 0.5 * (1.0 + std::sin(angle));
        slope = 0.5 * kPi * std::cos(angle);
    }
    const double byA = (h1 - h0) * slope;
    g[0] = byA / width;
    g[1] = byA * (a - 1.0) / width;
    g[3] = -byA * a / width;
    g[2] = 1.0 - shape;
    g[4] = shape;
}

namespace {

// Partials of STEP(x, x0, h0, x1, h1) into g, its value returned.
double Step(double x, double x0, double h0, double x1, double h1, double* g)
{
    const double v[5] = {x, x0, h0, x1, h1};
    StepPartials(kStep, v, g);
    return vexa_math::CubicStep(x, x0, h0, x1, h1);
}

// The force below the lower stop of IMPACT and BISTOP, k (x1 - x)^e minus
// damping that ramps in over d, where it is positive. Arguments x, v, x1, k,
// e, cmax, d; partials in the same order.
void LowerContact(const double* a, double* g)
{
    const double x = a[0], v = a[1], x1 = a[2], k = a[3], e = a[4], cmax = a[5], d = a[6];
    for (int i = 0; i < 7; ++i)
        g[i] = 0.0;
    double s[5];
    const double damping = Step(x, x1 - d, cmax, x1, 0.0, s);
    const double depth = x1 - x;
    const double power = vexa_math::Pow(depth, e);
    if (!(k * power - damping * v > 0.0))
        return;
    const double byDepth = k * e * vexa_math::Pow(depth, e - 1.0);
    g[0] = -byDepth - v * s[0];
    g[1] = -damping;
    g[2] = byDepth - v * (s[1] + s[3]);
    g[3] = power;
    g[4] = k * power * std::log(depth);
    g[5] = -v * s[2];
    g[6] = v * s[1];
}

// The force beyond the upper stop of BISTOP, -k (x - x2)^e minus damping,
// where it is negative. Arguments as BISTOP's.
void UpperContact(const double* a, double* g)
{
    const double x = a[0], v = a[1], x2 = a[3], k = a[4], e = a[5], cmax = a[6], d = a[7];
    for (int i = 0; i < 8; ++i)
        g[i] = 0.0;
    double s[5];
    const double damping = Step(x, x2, 0.0, x2 + d, cmax, s);
    const double depth = x - x2;
    const double power = vexa_math::Pow(depth, e);
    if (!(-k * power - damping * v < 0.0))
        return;
    const double byDepth = k * e * vexa_math::Pow(depth, e - 1.0);
    g[0] = -byDepth - v * s[0];
    g[1] = -damping;
    g[3] = byDepth - v * (s[1] + s[3]);
    g[4] = -power;
    g[5] = -k * power * std::log(depth);
    g[6] = -v * s[4];
    g[7] = -v * s[3];
}

}  // namespace

// SWEEP(x, a, x0, f0, x1, f1, dx) = sin(phase) * (ramp * a), with the ramp
// STEP5(x, 0, 0, dx, 1).
void SweepPartials(const double* v, double* g)
{
    const double x = v[0], a = v[1], x0 = v[2], f0 = v[3], x1 = v[4], f1 = v[5], dx = v[6];
    const double width = x1 - x0;
    const double k = (f1 - f0) / width;
    // d phase / d (x, x0, f0, x1, f1)
    double p[5] = {0.0, 0.0, 0.0, 0.0, 0.0};
    double phase;
    if (!(x > x0)) {
        phase = kTwoPi * f0 * x;
        p[0] = kTwoPi * f0;
        p[2] = kTwoPi * x;
    } else if (x <= x1) {
        const double t = x - x0;
        phase = k * t * (kPi * t) + kTwoPi * f0 * x;
        p[0] = kTwoPi * k * t + kTwoPi * f0;
        p[1] = -kTwoPi * k * t + kPi * t * t * k / width;
        p[2] = -kPi * t * t / width + kTwoPi * x;
        p[3] = -kPi * t * t * k / width;
        p[4] = kPi * t * t / width;
    } else {
        phase = k * width * (kPi * width) + kTwoPi * (f1 * (x - x1) + f0 * x1);
        p[0] = kTwoPi * f1;
        p[1] = -kPi * (f1 - f0);
        p[2] = -kPi * width + kTwoPi * x1;
        p[3] = -kPi * (f1 - f0);
        p[4] = kPi * width + kTwoPi * (x - x1);
    }
    const double ramp[5] = {x, 0.0, 0.0, dx, 1.0};
    double r[5];
    StepPartials(kStep5, ramp, r);
    const double q = vexa_math::QuinticStep(x, 0.0, 0.0, dx, 1.0);
    const double s = std::sin(phase);
    const double byPhase = std::cos(phase) * q * a;
    g[0] = byPhase * p[0] + s * a * r[0];
    g[1] = s * q;
    g[2] = byPhase * p[1];
    g[3] = byPhase * p[2];
    g[4] = byPhase * p[3];
    g[5] = byPhase * p[4];
    g[6] = s * a * r[3];
}

// POLY(x, x0, c...) and CHEBY(x, x0, c...): partials by the coefficients
// are the basis functions, by x their derivatives, by x0 the opposite.
void SeriesPartials(Op op, const double* v, int n, double* g)
{
    const double t = v[0] - v[1];
    const double* c = v + 2;
    const int m = n - 2;
    double byT = 0.0;
    if (op == kPoly) {
        for (int i = 0; i < m; ++i) {
            g[2 + i] = vexa_math::Pow(t, static_cast<double>(i));
            if (i > 0)
                byT += i * vexa_math::Pow(t, static_cast<double>(i - 1)) * c[i];
        }
    } else {
        // T(i) = 2t T(i-1) - T(i-2), so T'(i) = 2 T(i-1) + 2t T'(i-1) - T'(i-2).
        double before = 1.0, last = t, slopeBefore = 0.0, slopeLast = 1.0;
        for (int i = 0; i < m; ++i) {
            double ti = 1.0, slope = 0.0;
            if (i == 1) {
                ti = t;
                slope = 1.0;
            } else if (i > 1) {
                ti = 2.0 * t * last - before;
                slope = 2.0 * last + 2.0 * t * slopeLast - slopeBefore;
                before = last;
                last = ti;
                slopeBefore = slopeLast;
                slopeLast = slope;
            }
            g[2 + i] = ti;
            byT += slope * c[i];
        }
    }
    g[0] = byT;
    g[1] = -byT;
}

// FORCOS and FORSIN(x, x0, w, c0, c...): c0 + sum of wave(i w t) c_i.
void FourierPartials(Op op, const double* v, int n, double* g)
{
    const double t = v[0] - v[1];
    const double w = v[2];
    const bool cosine = op == kForcos;
    double byT = 0.0;
    double byW = 0.0;
    g[3] = 1.0;
    for (int i = 1; i < n - 3; ++i) {
        const double angle = (i * w) * t;
        const double c = v[3 + i];
        const double value = cosine ? std::cos(angle) : std::sin(angle);
        const double slope = cosine ? -std::sin(angle) : std::cos(angle);
        g[3 + i] = value;
        byT += slope * i * w * c;
        byW += slope * i * t * c;
    }
    g[0] = byT;
    g[1] = -byT;
    g[2] = byW;
}

void ImpactPartials(const double* v, double* g)
{
    if (v[0] < v[2]) {
        LowerContact(v, g);
    } else {
        for (int k = 0; k < 7; ++k)
            g[k] = 0.0;
    }
}

void BistopPartials(const double* v, double* g)
{
    if (v[0] < v[2]) {
        // IMPACT's arguments are BISTOP's without x2.
        const double lower[7] = {v[0], v[1], v[2], v[4], v[5], v[6], v[7]};
        double h[7];
        LowerContact(lower, h);
        for (int k = 0; k < 3; ++k)
            g[k] = h[k];
        g[3] = 0.0;
        for (int k = 3; k < 7; ++k)
            g[k + 1] = h[k];
    } else if (v[0] > v[3]) {
        UpperContact(v, g);
    } else {
        for (int k = 0; k < 8; ++k)
            g[k] = 0.0;
    }
}

}  // namespace vexa_ops
