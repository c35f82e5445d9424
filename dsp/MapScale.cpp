#include "MapScale.h"

namespace vesk
{
void MapScale::createLinearRescaleMap (int inputSize, int outputSize, double step)
{
    entries.resize (static_cast<std::size_t> (std::max (outputSize, 0)));
    for (int j = 0; j < outputSize; ++j)
    {
        auto& entry = entries[static_cast<std::size_t> (j)];
        float pos = static_cast<float> (j * step);
        if (!(pos >= 0.0f))
            pos = 0.0f;
        // Positions past the input are settled before any conversion to int: a huge step (a
        // filter stored at an absurdly low rate) would overflow it and index far outside.
        const bool pastEnd = !(pos < static_cast<float> (inputSize - 1));
        const int i = pastEnd ? inputSize - 1 : static_cast<int> (pos);
        const float frac = pos - static_cast<float> (i);
        if (inputSize <= 0)
        {
            entry.first = entry.end = 0; // nothing to read: the output is 0
            entry.weights.clear();
        }
        else if (pastEnd)
        {
            entry.first = inputSize - 1;
            entry.end = entry.first + 1;
            entry.weights.assign (1, 1.0f);
        }
        else
        {
            entry.first = i;
            entry.end = i + 2;
            entry.weights = {1.0f - frac, frac};
        }
    }
}

audio::Signal32 MapScale::apply (audio::Signal32 const& in) const
{
    const int outputSize = static_cast<int> (entries.size());
    audio::Signal32 out (in.getNumChannels(), outputSize);
    for (int c = 0; c < in.getNumChannels(); ++c)
    {
        const float* src = in.getChannel (c);
        float* dst = out.getChannel (c);
        for (int j = 0; j < outputSize; ++j)
        {
            auto const& entry = entries[static_cast<std::size_t> (j)];
            float sum = 0.0f;
            for (int k = 0; k < entry.end - entry.first; ++k)
                sum += entry.weights[static_cast<std::size_t> (k)] * src[entry.first + k];
            dst[j] = sum;
        }
    }
    return out;
}
} // namespace vesk
