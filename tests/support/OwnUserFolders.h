#pragma once

#include <juce_core/juce_core.h>

#include <cstdlib>

namespace vesk::test
{
/** Points HOME and XDG_CONFIG_HOME at a fresh folder, so that a test program neither reads nor
    changes a real user's settings, presets or licence (child processes inherit it). Call before
    JUCE starts; delete the folder returned when the tests are done. */
inline juce::File useOwnUserFolders (const juce::String& name)
{
    const auto home =
        juce::File::getSpecialLocation (juce::File::tempDirectory)
            .getChildFile (name + "-" + juce::String (juce::Time::currentTimeMillis()));
    home.createDirectory();
    setenv ("HOME", home.getFullPathName().toRawUTF8(), 1);
    setenv ("XDG_CONFIG_HOME", home.getChildFile (".config").getFullPathName().toRawUTF8(), 1);
    return home;
}
} // namespace vesk::test
