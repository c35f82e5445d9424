#include "JuceTestEnvironment.h"
#include "OwnUserFolders.h"

#include <cstdlib>

int main (int argc, char** argv)
{
    // The editors keep sizes, ranges, themes and presets in the user's folders: the tests get
    // folders of their own, so they neither read nor change a real user's.
    const auto home = vesk::test::useOwnUserFolders ("kelfiner-gui-tests");
    // Headless even where a display exists: the tests draw into images and must not open
    // windows (a failure's alert box would wait for a click).
    unsetenv ("DISPLAY");
    testing::InitGoogleTest (&argc, argv);
    testing::AddGlobalTestEnvironment (new vesk::test::JuceTestEnvironment());
    const int result = RUN_ALL_TESTS();
    home.deleteRecursively();
    return result;
}
