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

std::size_t TrigonometricInterpolation::findSegment (double x, std::size_t from) const
{
    std::size_t i = from;
    while (i < points.size() && !(points[i].x > x))
        ++i;
    return i;
}

TrigonometricInterpolation::Segment TrigonometricInterpolation::makeSegment (std::size_t i) const
{
    const auto& p = points[i - 1];
    const auto& q = points[i];
    Segment segment{p.x, p.y, q.x - p.x, q.y - p.y, 0.0, M_PI, 0.0, 0.0};
    if (segment.dy != 0.0 && segment.dx != 0.0)
    {
        // The neighbouring segments, measured in units of this one, set the slopes at its ends.
        if (i >= 2)
        {
            const auto& before = points[i - 2];
            segment.a = std::atan2 ((p.y - before.y) / segment.dy, (p.x - before.x) / segment.dx);
            if (!(segment.a > 0.0))
                segment.a = 0.0;
        }
        if (i + 1 < points.size())
        {
            const auto& after = points[i + 1];
            const double t =
                std::atan2 ((after.y - q.y) / segment.dy, (after.x - q.x) / segment.dx);
            segment.b = t > 0.0 ? M_PI - t : M_PI;
        }
    }
    segment.cosA = std::cos (segment.a);
    segment.cosB = std::cos (segment.b);
    return segment;
}

double TrigonometricInterpolation::blend (Segment const& s, double x)
{
    const double u = s.dx != 0.0 ? (x - s.x0) / s.dx : 0.0;
    return s.y0 + s.dy * (s.cosA - std::cos (s.a + (s.b - s.a) * u)) / (s.cosA - s.cosB);
}

double TrigonometricInterpolation::evaluate (double x) const
{
    if (points.empty())
        return 0.0;
    const auto i = findSegment (x, 0);
    if (i == points.size())
        return points.back().y;
    if (i == 0)
        return points.front().y;
    return blend (makeSegment (i), x);
}

void TrigonometricInterpolation::evaluateAscending (const double* x, float* out, int count) const
{
    std::size_t i = 0, built = 0;
    Segment segment{};
    for (int n = 0; n < count; ++n)
    {
        if (points.empty())
        {
            out[n] = 0.0f;
            continue;
        }
        i = findSegment (x[n], i);
        if (i == points.size())
            out[n] = static_cast<float> (points.back().y);
        else if (i == 0)
            out[n] = static_cast<float> (points.front().y);
        else
        {
            if (built != i)
            {
                segment = makeSegment (i);
                built = i;
            }
            out[n] = static_cast<float> (blend (segment, x[n]));
        }
    }
}
} // namespace vesk::audio
