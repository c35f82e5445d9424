#include "ParameterSlider.h"

ParameterSlider::ParameterSlider (const juce::String& name) : juce::Slider (name) {}

void ParameterSlider::attachParameter (BasePlugInProcessor* owner,
                                       vesk::audio::BaseAudioProcessor* processorEngine,
                                       EngineParameterId id, bool flagToPass)
{
    processor = owner;
    engine = processorEngine;
    engineId = id;
    flag = flagToPass;
    publicIndex = processor->findPublicParameterIndex (id);
    auto* description = processor->findPublicParameter (id);
    if (description == nullptr)
        return;
    float minimum = 0.0f, maximum = 1.0f;
    engine->getParameterRange (id.value, minimum, maximum);
    const juce::ScopedValueSetter<bool> quiet (forwarding, false);
    setRange (minimum, maximum, description->stepSize);
    setValue (engine->getParameterValue (id.value), juce::dontSendNotification);
    setDoubleClickReturnValue (true, description->defaultValue);
    fineStep = description->stepSize;
    setTitle (description->name);
}

// The index-based gesture calls match the index-based parameters the processor offers hosts.
JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")
void ParameterSlider::startedDragging()
{
    if (processor != nullptr)
        processor->beginParameterChangeGesture (publicIndex.value);
}

void ParameterSlider::stoppedDragging()
{
    if (processor != nullptr)
        processor->endParameterChangeGesture (publicIndex.value);
}
JUCE_END_IGNORE_WARNINGS_GCC_LIKE

void ParameterSlider::valueChanged()
{
    if (!forwarding || processor == nullptr || engine == nullptr)
        return;
    // Through the processor's check, so the editor is one more entrance that cannot overshoot.
    processor->setCheckedParameterValue (engineId, (float) getValue(), flag);
    processor->notifyInternalParameterChange (engineId);
}

void ParameterSlider::mouseDown (const juce::MouseEvent& event)
{
    juce::Slider::mouseDown (event);
    lastX = event.x;
    lastY = event.y;
    lastStepTime = juce::Time::getMillisecondCounterHiRes();
}

void ParameterSlider::mouseDrag (const juce::MouseEvent& event)
{
    const auto modifiers = event.mods;
    if (!modifiers.isCtrlDown() && !modifiers.isAltDown() && !modifiers.isCommandDown())
    {
        juce::Slider::mouseDrag (event);
        return;
    }
    const double now = juce::Time::getMillisecondCounterHiRes();
    if (now - lastStepTime <= 100.0)
        return;
    const bool alongX = isHorizontal() || getSliderStyle() == RotaryHorizontalDrag;
    const int movement = alongX ? event.x - lastX : lastY - event.y;
    if (movement >= 1)
        setValue (getValue() + fineStep, juce::sendNotificationSync);
    else if (movement <= -1)
        setValue (getValue() - fineStep, juce::sendNotificationSync);
    lastX = event.x;
    lastY = event.y;
    lastStepTime = now;
}
