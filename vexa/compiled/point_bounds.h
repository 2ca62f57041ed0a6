#ifndef VEXA_COMPILED_POINT_BOUNDS_H
#define VEXA_COMPILED_POINT_BOUNDS_H

#include <cstddef>
#include <string>

namespace vexa {
struct Column;
}

namespace vexa_compiled {

// Why n points of `params` columns, each point writing `per_point` doubles,
// cannot be evaluated: empty when they can. No buffer that large can exist,
// so such a count is a host's mistake (often a negative count turned
// unsigned), and answering it with success and nothing written would hide
// it. A column's last point must also lie within the reach of a pointer
// offset. columns may be null when params is 0.
std::string PointsBeyondReach(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point);

// Throws std::length_error with the reason above.
void CheckPoints(std::size_t n, int params, const vexa::Column* columns, std::size_t per_point);

}  // namespace vexa_compiled

#endif
