#include "AudioFormat.h"

namespace vesk::audio
{
AudioFormat::AudioFormat (int channels, double rate)
    : channelCount (channels), sampleRate (rate),
      speakers (static_cast<std::size_t> (channels > 0 ? channels : 0))
{
    const SpeakerPosition left (-1, 1, 0, 0), right (1, 1, 0, 0), centre (0, 1, 0, 0);
    const SpeakerPosition lfe (0, 0, 0, SpeakerPosition::lowFrequencyEffects);
    const SpeakerPosition leftSurround (-1, -1, 0, 0), rightSurround (1, -1, 0, 0);
    const SpeakerPosition leftSide (-1, 0, 0, 0), rightSide (1, 0, 0, 0);

    switch (channels)
    {
        case 1: speakers = {centre}; break;
        case 2: speakers = {left, right}; break;
        case 3: speakers = {left, right, lfe}; break;
        case 4: speakers = {left, right, leftSurround, rightSurround}; break;
        case 5: speakers = {left, right, centre, leftSurround, rightSurround}; break;
        case 6: speakers = {left, right, centre, lfe, leftSurround, rightSurround}; break;
        case 7:
            speakers = {left, right, centre, leftSurround, rightSurround, leftSide, rightSide};
            break;
        case 8:
            speakers = {left, right, centre, lfe, leftSurround, rightSurround, leftSide, rightSide};
            break;
        default: break;
    }
}
} // namespace vesk::audio
