#include "vexa/calc/builtin_math.h"

#include "vexa/calc/builtin_math_generic.h"

// Each double function is its template of builtin_math_generic.h, made here
// once and out of line.
namespace vexa_math {

double Anint(double x)
{
    return Anint<double>(x);
}

double Mod(double a, double b)
{
    return Mod<double>(a, b);
}

double CubicStep(double x, double x0, double h0, double x1, double h1)
{
    return CubicStep<double>(x, x0, h0, x1, h1);
}

double QuinticStep(double x, double x0, double h0, double x1, double h1)
{
    return QuinticStep<double>(x, x0, h0, x1, h1);
}

double Havsin(double x, double x0, double h0, double x1, double h1)
{
    return Havsin<double>(x, x0, h0, x1, h1);
}

double Shf(double x, double x0, double a, double w, double phi, double b)
{
    return Shf<double>(x, x0, a, w, phi, b);
}

double Impact(double x, double v, double x1, double k, double e, double cmax, double d)
{
    return Impact<double>(x, v, x1, k, e, cmax, d);
}

double Bistop(double x, double v, double x1, double x2, double k, double e, double cmax, double d)
{
    return Bistop<double>(x, v, x1, x2, k, e, cmax, d);
}

double Sweep(double x, double a, double x0, double f0, double x1, double f1, double dx)
{
    return Sweep<double>(x, a, x0, f0, x1, f1, dx);
}

double Poly(double x, double x0, const double* c, int n)
{
    return Poly<double>(x, x0, c, n);
}

double Cheby(double x, double x0, const double* c, int n)
{
    return Cheby<double>(x, x0, c, n);
}

double Forcos(double x, double x0, double w, const double* c, int n)
{
    return Forcos<double>(x, x0, w, c, n);
}

double Forsin(double x, double x0, double w, const double* c, int n)
{
    return Forsin<double>(x, x0, w, c, n);
}

}  // namespace vexa_math
