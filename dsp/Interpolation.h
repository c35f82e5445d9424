#pragma once

#include "Signal.h"

#include <vector>

namespace vesk::audio
{
/** A curve through points, sampled into signals. Any thread. */
class BaseInterpolation
{
public:
    virtual ~BaseInterpolation() = default;
    virtual double evaluate (double x) const = 0;

    /** count samples at xFrom + k (xTo - xFrom)/(count - 1); a count of 1 samples xFrom. */
    Signal32 getSignal (int count, float xFrom, float xTo) const;
};

/** Raised-cosine blends between points sorted by x, leaving each point along its neighbours'
    trend; constant beyond the first and last point. */
class TrigonometricInterpolation : public BaseInterpolation
{
public:
    explicit TrigonometricInterpolation (std::vector<Coordinate2D> const& points);
    /** With no points the curve is 0 everywhere. */
    double evaluate (double x) const override;
    /** evaluate() at many ascending positions at once (the same values, computed once per
        segment where they can be). */
    void evaluateAscending (const double* x, float* out, int count) const;

private:
    struct Segment
    {
        double x0, y0, dx, dy, a, b, cosA, cosB;
    };
    /** The first point strictly beyond x (points.size() when there is none). */
    std::size_t findSegment (double x, std::size_t from) const;
    Segment makeSegment (std::size_t i) const;
    static double blend (Segment const& segment, double x);

    std::vector<Coordinate2D> points;
};
} // namespace vesk::audio
