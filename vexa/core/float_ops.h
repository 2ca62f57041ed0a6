#ifndef VEXA_CORE_FLOAT_OPS_H
#define VEXA_CORE_FLOAT_OPS_H

// The four arithmetic operations with their operand order fixed. When both
// operands are NaN the hardware returns the first one's NaN (its sign and
// payload), and a compiler may swap the operands of + and * at will, so the
// same source can give different bits in two places. The value arithmetic,
// the built-ins and the compiled program all compute through these, and so
// agree bit for bit on every input. Internal to the library.
namespace vexa_core {

#if defined(__GNUC__) && defined(__x86_64__)

inline double Sum(double first, double second)
{
    __asm__("addsd %1, %0" : "+x"(first) : "xm"(second));
    return first;
}

inline double Difference(double first, double second)
{
    __asm__("subsd %1, %0" : "+x"(first) : "xm"(second));
    return first;
}

inline double Product(double first, double second)
{
    __asm__("mulsd %1, %0" : "+x"(first) : "xm"(second));
    return first;
}

inline double Quotient(double first, double second)
{
    __asm__("divsd %1, %0" : "+x"(first) : "xm"(second));
    return first;
}

#elif defined(__GNUC__) && defined(__aarch64__)

// The AArch64 machine code computes with these very instructions, first
// operand first.
inline double Sum(double first, double second)
{
    __asm__("fadd %d0, %d0, %d1" : "+w"(first) : "w"(second));
    return first;
}

inline double Difference(double first, double second)
{
    __asm__("fsub %d0, %d0, %d1" : "+w"(first) : "w"(second));
    return first;
}

inline double Product(double first, double second)
{
    __asm__("fmul %d0, %d0, %d1" : "+w"(first) : "w"(second));
    return first;
}

inline double Quotient(double first, double second)
{
    __asm__("fdiv %d0, %d0, %d1" : "+w"(first) : "w"(second));
    return first;
}

#else

inline double Sum(double first, double second) { return first + second; }
inline double Difference(double first, double second) { return first - second; }
inline double Product(double first, double second) { return first * second; }
inline double Quotient(double first, double second) { return first / second; }

#endif

}  // namespace vexa_core

#endif
