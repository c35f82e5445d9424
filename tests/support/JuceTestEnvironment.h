#pragma once

#include <juce_events/juce_events.h>

#include <gtest/gtest.h>

namespace vesk::test
{
/** Owns JUCE's message manager for the whole test run (the GUI initialiser, as plug-ins expect). */
class JuceTestEnvironment : public testing::Environment
{
public:
    void SetUp() override { initialiser = std::make_unique<juce::ScopedJuceInitialiser_GUI>(); }
    void TearDown() override { initialiser.reset(); }

private:
    std::unique_ptr<juce::ScopedJuceInitialiser_GUI> initialiser;
};
} // namespace vesk::test
