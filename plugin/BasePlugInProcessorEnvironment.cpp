#include "BasePlugInProcessor.h"

// Names, version code, properties file, resources, translations and help.

const juce::String BasePlugInProcessor::getName() const
{
    return juce::String (makerName) + " " + pluginName;
}

unsigned int BasePlugInProcessor::versionCodeOf (const juce::String& version)
{
    const auto tokens = juce::StringArray::fromTokens (version, ".", "");
    unsigned int code = 0;
    for (int i = 0; i < 3; ++i)
        code = (code << 8) + static_cast<unsigned int> (juce::jmax (0, tokens[i].getIntValue()));
    return code;
}

unsigned int BasePlugInProcessor::getVersionCode() const { return versionCodeOf (versionText); }

juce::PropertiesFile* BasePlugInProcessor::createPropertiesFile() const
{
    juce::PropertiesFile::Options options;
    options.applicationName =
        (bundleName + versionText.upToFirstOccurrenceOf (".", false, false)).removeCharacters (" ");
    options.filenameSuffix = "prop";
    options.folderName = makerName;
    options.osxLibrarySubFolder = "Application Support";
#if JUCE_MAC
    options.commonToAllUsers = true;
#else
    options.commonToAllUsers = false; // Linux has no machine-wide folder that a user may write
#endif
    options.ignoreCaseOfKeyNames = false;

    const auto beside = juce::File::getSpecialLocation (juce::File::currentExecutableFile)
                            .getParentDirectory()
                            .getChildFile (options.applicationName + ".prop");
    if (beside.getParentDirectory().hasWriteAccess() && beside.existsAsFile())
        return new juce::PropertiesFile (beside, options);
#if JUCE_MAC
    return new juce::PropertiesFile (options);
#else
    // Beside the presets and filters, under ~/.config (JUCE's own choice on Linux is a folder
    // named after the maker directly in the home folder); a file left there by an earlier
    // version moves along.
    const auto file = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory)
                          .getChildFile (makerName)
                          .getChildFile (options.applicationName + ".prop");
    const auto earlier = options.getDefaultFile();
    if (!file.existsAsFile() && earlier.existsAsFile()
        && file.getParentDirectory().createDirectory())
        earlier.moveFileTo (file);
    return new juce::PropertiesFile (file, options);
#endif
}

juce::File BasePlugInProcessor::getResourcesFolder() const
{
#if JUCE_MAC
    return juce::File::getSpecialLocation (juce::File::currentApplicationFile)
        .getChildFile ("Contents/Resources");
#else
    // VST3: Name.vst3/Contents/<arch>/Name.so; LV2: Name.lv2/Name.so; anything else (the
    // stand-alone program, the tool) keeps a Resources folder beside its executable, or, once
    // installed, finds them in PREFIX/share/kelfiner.
    // A plug-in is the library it was loaded from; a program (the stand-alone, the tool) is what
    // the system ran, which JUCE's own lookup takes from argv[0] and so misses when the program
    // was found through PATH.
    const bool plugIn = wrapperType == wrapperType_VST3 || wrapperType == wrapperType_LV2;
    const auto executable = juce::File::getSpecialLocation (
        plugIn ? juce::File::currentExecutableFile : juce::File::hostApplicationPath);
    const auto bundle = executable.getParentDirectory().getParentDirectory().getParentDirectory();
    if (bundle.hasFileExtension ("vst3"))
        return bundle.getChildFile ("Contents/Resources");
    if (executable.getParentDirectory().hasFileExtension ("lv2"))
        return executable.getParentDirectory();
    const auto beside = executable.getParentDirectory().getChildFile ("Resources");
    const auto installed =
        executable.getParentDirectory().getSiblingFile ("share").getChildFile ("kelfiner");
    return beside.isDirectory() || !installed.isDirectory() ? beside : installed;
#endif
}

juce::File BasePlugInProcessor::getUserDataFolder() const
{
#if JUCE_MAC
    const auto base = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory)
                          .getChildFile ("Application Support");
#else
    const auto base = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory);
#endif
    return base.getChildFile (makerName).getChildFile (bundleName.removeCharacters (" "));
}

void BasePlugInProcessor::initializeLocalization()
{
    const auto language =
        juce::SystemStats::getDisplayLanguage().upToFirstOccurrenceOf ("-", false, false);
    const auto file = getResourcesFolder().getChildFile (bundleName.removeCharacters (" ") + "_"
                                                         + language + ".loc");
    if (file.existsAsFile())
        juce::LocalisedStrings::setCurrentMappings (new juce::LocalisedStrings (file, false));
}

juce::String BasePlugInProcessor::getHelpFilePath (const juce::String& language) const
{
    const auto page = pluginName.toLowerCase().removeCharacters (" ") + ".html";
    const auto resources = getResourcesFolder();
    const auto bundle = bundleName.removeCharacters (" ");
    const auto localised = resources.getChildFile (bundle + "_" + language).getChildFile (page);
    if (localised.existsAsFile())
        return localised.getFullPathName();
    return resources.getChildFile (bundle + "_en").getChildFile (page).getFullPathName();
}

juce::String BasePlugInProcessor::showHelp() const
{
    const auto language =
        juce::SystemStats::getDisplayLanguage().upToFirstOccurrenceOf ("-", false, false);
    const juce::File page (getHelpFilePath (language));
    if (!page.existsAsFile())
        return juce::translate ("The help page is missing (it should be at %1).")
            .replace ("%1", page.getFullPathName());
    if (juce::Process::openDocument (page.getFullPathName(), {}))
        return {};
    // Without a desktop browser (JUCE tries a handful of them), the user can still open it.
    return juce::translate ("No web browser could be started. The help page is at %1.")
        .replace ("%1", page.getFullPathName());
}
