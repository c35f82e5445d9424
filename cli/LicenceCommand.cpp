#include "LicenceCommand.h"

#include "KelfinerAudioProcessor.h"
#include "LicenseManager.h"

#include <cstdio>

using vesk::licensing::LicenseManager;
using vesk::licensing::Verdict;

int licenceCommand (juce::StringArray const& args)
{
    const KelfinerAudioProcessor processor;
    LicenseManager licences (KelfinerAudioProcessor::licenceProductCode,
                             KelfinerAudioProcessor::vendorPublicKey(), processor.getLicenceFile());
    const auto status = [&]
    {
        if (!licences.isDemo())
        {
            const auto licence = licences.getLicence();
            std::printf (
                "licensed to %s <%s>, serial %s, issued %s%s\n", licence.licensee.toRawUTF8(),
                licence.email.toRawUTF8(), licence.serial.toRawUTF8(), licence.issued.toRawUTF8(),
                licence.expires.isEmpty() ? "" : (", expires " + licence.expires).toRawUTF8());
        }
        else if (licences.getStoredLicenceFile().existsAsFile())
            std::printf ("demo mode: the stored licence is not in force. %s\n",
                         vesk::licensing::describe (licences.getStoredVerdict()).toRawUTF8());
        else
            std::printf ("demo mode: no licence is stored (the plug-ins mute briefly now and "
                         "then)\n");
        std::printf ("licence file: %s\n",
                     licences.getStoredLicenceFile().getFullPathName().toRawUTF8());
    };
    const auto verb = args[1];
    if (args.size() == 2 && verb == "status")
    {
        status();
        return 0;
    }
    if (args.size() == 3 && (verb == "authorise" || verb == "authorize"))
    {
        const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (args[2]);
        const auto verdict = licences.authoriseFromFile (file);
        if (verdict != Verdict::accepted)
        {
            std::fprintf (stderr, "error: %s: %s\n", file.getFullPathName().toRawUTF8(),
                          vesk::licensing::describe (verdict).toRawUTF8());
            return 1;
        }
        status();
        return 0;
    }
    if (args.size() == 2 && (verb == "deauthorise" || verb == "deauthorize"))
    {
        if (!licences.deauthorise())
        {
            std::fprintf (stderr, "error: cannot remove %s\n",
                          licences.getStoredLicenceFile().getFullPathName().toRawUTF8());
            return 1;
        }
        status();
        return 0;
    }
    std::fprintf (stderr, "usage: kelfiner licence status | authorise FILE | deauthorise\n");
    return 2;
}
