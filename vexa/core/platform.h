#ifndef VEXA_CORE_PLATFORM_H
#define VEXA_CORE_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>

#if defined(_MSC_VER)
#include <intrin.h>
#endif
#if defined(__x86_64__) || defined(_M_X64)
#include <xmmintrin.h>
#endif
#include <cfenv>

// Portability layer: the few platform routines the library relies on, with
// results that do not depend on the C locale. Internal to the library.
namespace vexa_platform {

// Millisecond tick counter; wraps around like a 32-bit counter.
std::uint32_t TickCount();

// Case-insensitive comparison folding only A-Z, code units compared as
// unsigned values; a null text compares like an empty one.
int WcsICmp(const wchar_t* a, const wchar_t* b);

// Longest leading decimal number (digits, one point, an exponent of E or e
// with optional sign) converted to double, "C" locale rules always; 0.0 when
// the text begins with no number.
double WToF(const wchar_t* text);

// The text of a 32-bit integer as "%d" would write it.
std::wstring FormatInt(std::int32_t v);

// Truncation toward zero to a 32-bit signed integer; NaN and values whose
// truncation lies outside the 32-bit range give -2147483648.
std::int32_t Trunc32(double v);

// White space as the standard wide test sees it in the "C" locale.
bool IsWSpace(wchar_t c);

// Length of a zero-terminated wide text; 0 for a null pointer.
std::size_t WLen(const wchar_t* s);

// Bytes of stack left below the caller on the current thread, or SIZE_MAX
// where the thread's stack cannot be located (an unknown platform, a stack
// the code runs on that is not the thread's own, such as a coroutine's).
std::size_t StackLeft();

// Atomic changes of a plain int that several threads may reach at once (the
// reference count of a calculator that trees on different threads share).
// The int stays a plain int, so the classes that hold one keep their layout.
// AtomicIncrement orders nothing; AtomicDecrement returns the value before
// the change and orders every earlier access of this thread before it, and
// of the thread that sees 0 after it, so that thread may destroy the object.
inline void AtomicIncrement(int& value)
{
#if defined(_MSC_VER)
    _InterlockedIncrement(reinterpret_cast<volatile long*>(&value));
#else
    __atomic_fetch_add(&value, 1, __ATOMIC_RELAXED);
#endif
}

inline int AtomicDecrement(int& value)
{
#if defined(_MSC_VER)
    return static_cast<int>(_InterlockedDecrement(reinterpret_cast<volatile long*>(&value))) + 1;
#else
    return __atomic_fetch_sub(&value, 1, __ATOMIC_ACQ_REL);
#endif
}

// The floating-point control a host may change under the library: the
// rounding mode, flush-to-zero and denormals-are-zero, unmasked traps.
// Evaluate's paths give the tree's bits under any of them by construction
// (the same instructions in the same order, constants folded only where
// exact); the many-point runners and Gradient compute what the tree never
// would (masked-off lanes, partials), so they read the environment once
// per call and leave any other to the tree or to the default environment.
// The six sticky flags are left out: a host may read or clear them at will,
// and the tree raises them too. The x87 control word plays no part: no path
// computes in long double.
#if defined(__x86_64__) || defined(_M_X64)
const unsigned kDefaultMxcsr = 0x1F80u;
const unsigned kMxcsrFlags = 0x3Fu;

inline bool DefaultFloatEnvironment()
{
    return (_mm_getcsr() & ~kMxcsrFlags) == kDefaultMxcsr;
}

// The default environment for the life of the object, so that what is made
// or run here depends on no host setting and cannot trap; then the host's
// environment again exactly, sticky flags included. In the default
// environment it changes nothing and costs one read.
class DefaultFloatScope {
public:
    DefaultFloatScope() : m_saved(_mm_getcsr()), m_changed((m_saved & ~kMxcsrFlags) != kDefaultMxcsr)
    {
        if (m_changed)
            _mm_setcsr(kDefaultMxcsr);
    }
    ~DefaultFloatScope()
    {
        if (m_changed)
            _mm_setcsr(m_saved);
    }
    DefaultFloatScope(const DefaultFloatScope&) = delete;
    DefaultFloatScope& operator=(const DefaultFloatScope&) = delete;

private:
    unsigned m_saved;
    bool m_changed;
};
#elif defined(__aarch64__) && defined(__GNUC__)
// FPCR's fields that change a double's result or trap: the trap enables
// (bits 8-12 and 15), flush-to-zero (24), the default NaN (25) and the
// rounding (22-23). The default has them all clear.
const unsigned long long kFpcrControls = 0x9F00ull | 3ull << 22 | 1ull << 24 | 1ull << 25;

inline unsigned long long ReadFpcr()
{
    unsigned long long fpcr;
    __asm__ volatile("mrs %0, fpcr" : "=r"(fpcr));
    return fpcr;
}

inline void WriteFpcr(unsigned long long fpcr)
{
    __asm__ volatile("msr fpcr, %0" : : "r"(fpcr));
}

inline bool DefaultFloatEnvironment()
{
    return (ReadFpcr() & kFpcrControls) == 0;
}

// As on x86-64; the flags live in FPSR, which this leaves alone.
class DefaultFloatScope {
public:
    DefaultFloatScope() : m_saved(ReadFpcr()), m_changed((m_saved & kFpcrControls) != 0)
    {
        if (m_changed)
            WriteFpcr(m_saved & ~kFpcrControls);
    }
    ~DefaultFloatScope()
    {
        if (m_changed)
            WriteFpcr(m_saved);
    }
    DefaultFloatScope(const DefaultFloatScope&) = delete;
    DefaultFloatScope& operator=(const DefaultFloatScope&) = delete;

private:
    unsigned long long m_saved;
    bool m_changed;
};
#else
// Elsewhere the environment is not inspected yet: the host is trusted to
// keep the default.
inline bool DefaultFloatEnvironment()
{
    return true;
}

class DefaultFloatScope {
public:
    DefaultFloatScope() {}
    DefaultFloatScope(const DefaultFloatScope&) = delete;
    DefaultFloatScope& operator=(const DefaultFloatScope&) = delete;
};
#endif

// Runs compute in the default environment with every flag clear, then
// restores the host's environment exactly; true where compute raised no
// flag (not even inexact or denormal operand): its result could not have
// trapped, and is the same under every rounding mode and flushing setting
// unless it is a zero (whose sign, for a sum, follows the rounding). For work done once, when a program is made: it costs a few
// hundred cycles.
template <typename Compute>
bool RaisesNoFlag(Compute&& compute)
{
    // The host's environment comes back on every way out, an exception's too.
    // MinGW-w64's fesetenv gives back the x87 control word only, leaving the
    // SSE unit in the last rounding mode set here (every later sum of the
    // host and of the tree rounding so): the SSE control is saved apart.
    struct Restore {
        std::fenv_t saved;
#if defined(__x86_64__) || defined(_M_X64)
        unsigned mxcsr = _mm_getcsr();
#endif
        Restore() { std::fegetenv(&saved); }
        ~Restore()
        {
            std::fesetenv(&saved);
#if defined(__x86_64__) || defined(_M_X64)
            _mm_setcsr(mxcsr);
#endif
        }
    } restore;
    std::fesetenv(FE_DFL_ENV);
#if defined(__x86_64__) || defined(_M_X64)
    _mm_setcsr(kDefaultMxcsr);
#endif
    std::feclearexcept(FE_ALL_EXCEPT);
    compute();
    bool clean = std::fetestexcept(FE_ALL_EXCEPT) == 0;
#if defined(__x86_64__) || defined(_M_X64)
    clean = clean && (_mm_getcsr() & kMxcsrFlags) == 0;
#endif
    return clean;
}

}  // namespace vexa_platform

#endif
