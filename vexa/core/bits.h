#ifndef VEXA_CORE_BITS_H
#define VEXA_CORE_BITS_H

#include <cstdint>
#include <cstring>

// The bits of a double, for constants written into code and for keys that
// must tell -0 from 0 and one NaN from another. Internal to the library.
namespace vexa_core {

inline std::uint64_t Bits(double v)
{
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

}  // namespace vexa_core

#endif
