#include "JuceTestEnvironment.h"

#include <juce_gui_basics/juce_gui_basics.h>

int main (int argc, char** argv)
{
    testing::InitGoogleTest (&argc, argv);
    testing::AddGlobalTestEnvironment (new vesk::test::JuceTestEnvironment());
    return RUN_ALL_TESTS();
}
