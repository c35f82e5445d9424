#pragma once

#include "BasePlugInProcessor.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** A slider bound to one engine parameter and to the host's automation gestures. With Ctrl, Alt
    or Command held, a drag steps the value by one interval at most every 100 ms, for settings
    finer than a pixel. Message thread. */
class ParameterSlider : public juce::Slider
{
public:
    explicit ParameterSlider (const juce::String& name);

    /** Binds the slider: range and step from the parameter's description, value from the engine,
        double-click back to the default. */
    void attachParameter (BasePlugInProcessor* processor, vesk::audio::BaseAudioProcessor* engine,
                          EngineParameterId id, bool flag);
    PublicParameterIndex getPublicParameterIndex() const noexcept { return publicIndex; }
    EngineParameterId getEngineParameterId() const noexcept { return engineId; }
    /** Off while the owner sets the value from the engine, so the value is not written back. */
    void setForwarding (bool shouldForward) noexcept { forwarding = shouldForward; }

    void startedDragging() override;
    void stoppedDragging() override;
    void valueChanged() override;
    void mouseDown (const juce::MouseEvent& event) override;
    void mouseDrag (const juce::MouseEvent& event) override;

private:
    bool forwarding = true;
    BasePlugInProcessor* processor = nullptr;
    vesk::audio::BaseAudioProcessor* engine = nullptr;
    PublicParameterIndex publicIndex{-1};
    EngineParameterId engineId{-1};
    bool flag = true;
    float fineStep = 1.0f;
    int lastX = 0, lastY = 0;
    double lastStepTime = 0.0;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ParameterSlider)
};
