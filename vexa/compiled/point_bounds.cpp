#include "vexa/compiled/point_bounds.h"

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "vexa/compiled/compiled_expression.h"

namespace vexa_compiled {

namespace {

// The most doubles one object can hold: offsets between its elements must
// fit a ptrdiff_t in bytes.
constexpr std::size_t kMostDoubles =
    static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(double);

}  // namespace

std::string PointsBeyondReach(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point)
{
    if (n == 0)
        return std::string();
    if (n > kMostDoubles / (per_point == 0 ? 1 : per_point))
        return std::to_string(n) + " points need more doubles than one buffer can hold";
    // With n <= kMostDoubles, (n - 1) * |stride| is checked without overflow.
    const std::size_t last = n - 1;
    for (int k = 0; k < params && columns; ++k) {
        const std::ptrdiff_t stride = columns[k].stride;
        const std::size_t size = stride < 0 ? 0 - static_cast<std::size_t>(stride) : static_cast<std::size_t>(stride);
        if (last > 0 && size > kMostDoubles / last)
            return "the stride " + std::to_string(stride) + " of parameter " + std::to_string(k) +
                   " reaches beyond any buffer over " + std::to_string(n) + " points";
    }
    return std::string();
}

void CheckPoints(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point)
{
    const std::string why = PointsBeyondReach(n, params, columns, per_point);
    if (!why.empty())
        throw std::length_error("vexa: " + why);
}

}  // namespace vexa_compiled
