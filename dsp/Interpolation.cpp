#include "Interpolation.h"

#include <cmath>

namespace vesk::audio
{
Signal32 BaseInterpolation::getSignal (int count, float xFrom, float xTo) const
{
    Signal32 result (1, count);
    float* out = result.getChannel (0);
    const float step = count > 1 ? (xTo - xFrom) / static_cast<float> (count - 1) : 0.0f;
    for (int k = 0; k < count; ++k)
        out[k] = static_cast<float> (
            evaluate (static_cast<double> (xFrom + static_cast<float> (k) * step)));
    return result;
}

TrigonometricInterpolation::TrigonometricInterpolation (
    std::vector<Coordinate2D> const& pointsToUse)
    : points (pointsToUse)
{
}

double TrigonometricInterpolation::evaluate (double x) const
{
    if (points.empty())
        return 0.0;

    std::size_t i = 0;
    while (i < points.size() && !(points[i].x > x))
        ++i;
    if (i == points.size())
        return points.back().y;
    if (i == 0)
        return points.front().y;

    const auto& p = points[i - 1];
    const auto& q = points[i];
    const double dx = q.x - p.x, dy = q.y - p.y;
    double a = 0.0, b = M_PI;
    if (dy != 0.0 && dx != 0.0)
    {
        if (i >= 2)
        {
            const auto& before = points[i - 2];
            a = std::atan2 ((p.y - before.y) / dy, (p.x - before.x) / dx);
            if (!(a > 0.0))
                a = 0.0;
        }
        if (i + 1 < points.size())
        {
            const auto& after = points[i + 1];
            const double t = std::atan2 ((after.y - q.y) / dy, (after.x - q.x) / dx);
            b = t > 0.0 ? M_PI - t : M_PI;
        }
    }
    const double u = dx != 0.0 ? (x - p.x) / dx : 0.0;
    return p.y + dy * (std::cos (a) - std::cos (a + (b - a) * u)) / (std::cos (a) - std::cos (b));
}
} // namespace vesk::audio
