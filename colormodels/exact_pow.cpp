// Powers used by the LAB conversions.
#include "color_math.h"

#include <cmath>

namespace pax {

double PowOneThird(double x) { return std::pow(x, 0.3333333333333333); }

double PowCube(double x) { return std::pow(x, 3); }

} // namespace pax
