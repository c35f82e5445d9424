#pragma once

#include <array>
#include <string_view>

namespace vesk::audio
{
/** What the "EstimationMode" parameter selects. 0 and 3 only seed an empty estimate from the
    first frame that passes the level gate. */
enum EstimationMode
{
    seedMode = 0,
    learnMode = 1,
    holdMode = 2,
    seedOnceMode = 3
};

/** How learning turns frames into the source model. The first is the original: each frame's
    linear-prediction model, averaged coefficient by coefficient. The second averages what does
    add up, the frames' power spectra, and makes one model of the mean (its minimum-phase
    whitening filter) whenever the filter is designed: on music and speech, whose frames differ
    widely, that mean is the long-term spectrum, where an average of coefficient sets describes
    no frame at all. */
enum class Estimator
{
    frameModels = 0,
    longTermSpectrum = 1
};

struct EstimatorChoice
{
    Estimator estimator;
    const char* name;
    const char* key;
};

inline constexpr std::array<EstimatorChoice, 2> estimators{{
    {Estimator::frameModels, "Frame models averaged", "frames"},
    {Estimator::longTermSpectrum, "Long-term spectrum", "spectrum"},
}};

/** One target profile: its "TargetModel" value, the name users see and the key the
    command-line tool takes. */
struct TargetProfile
{
    int model;
    const char* name;
    const char* key;
};

/** The profiles in the order users are offered them; the value 6 that the parameter's range
    also admits is a flat target with no name. */
inline constexpr std::array<TargetProfile, 6> targetProfiles{{
    {0, "Automatic", "automatic"},
    {1, "Music", "music"},
    {2, "Music (dark)", "music-dark"},
    {3, "Music (less harsh)", "music-less-harsh"},
    {4, "Speech", "speech"},
    {5, "Custom", "custom"},
}};

/** The profile with this key, or nullptr. */
inline const TargetProfile* findTargetProfile (std::string_view key)
{
    for (auto const& profile : targetProfiles)
        if (key == profile.key)
            return &profile;
    return nullptr;
}
} // namespace vesk::audio
