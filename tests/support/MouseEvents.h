#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

namespace vesk::test
{
/** A synthetic mouse event on a component, for driving mouse handlers without a display. */
inline juce::MouseEvent mouseAt (juce::Component& component, float x, float y,
                                 juce::ModifierKeys mods = {}, int clicks = 1)
{
    const juce::Point<float> position (x, y);
    const auto now = juce::Time::getCurrentTime();
    return juce::MouseEvent (
        juce::Desktop::getInstance().getMainMouseSource(), position, mods,
        juce::MouseInputSource::defaultPressure, juce::MouseInputSource::defaultOrientation,
        juce::MouseInputSource::defaultRotation, juce::MouseInputSource::defaultTiltX,
        juce::MouseInputSource::defaultTiltY, &component, &component, now, position, now, clicks,
        false);
}

inline const juce::ModifierKeys alt{juce::ModifierKeys::altModifier};
inline const juce::ModifierKeys altShift{juce::ModifierKeys::altModifier
                                         | juce::ModifierKeys::shiftModifier};
inline const juce::ModifierKeys shift{juce::ModifierKeys::shiftModifier};
} // namespace vesk::test
