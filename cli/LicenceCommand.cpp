#include "Commands.h"

#include "KelfinerAudioProcessor.h"
#include "LicenseManager.h"
#include "RegularFile.h"

#include <cstdio>

using vesk::licensing::LicenseManager;
using vesk::licensing::Verdict;

namespace
{
class LicenceCommand final : public Command
{
public:
    explicit LicenceCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("licence", "the plug-ins' licence on this machine");
        app->alias ("license");
        app->require_subcommand (1);
        app->add_subcommand ("status", "what licence is in force");
        auto* authorise = app->add_subcommand ("authorise", "store a licence key file");
        authorise->alias ("authorize");
        authorise->add_option ("file", keyFile, "the licence key file")->required();
        app->add_subcommand ("deauthorise", "remove the stored licence")->alias ("deauthorize");
    }

    int run() override;

private:
    std::string keyFile;
};

int LicenceCommand::run()
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
    const auto verb = app->get_subcommands().front()->get_name();
    if (verb == "status")
    {
        status();
        return 0;
    }
    if (verb == "authorise")
    {
        const auto file = fileArgument (keyFile);
        // A key that cannot be read is not a key that is wrong: say which.
        if (juce::String whyNot; !regularFile::check (file, &whyNot))
        {
            printError (file.getFullPathName() + " " + whyNot);
            return 1;
        }
        const auto verdict = licences.authoriseFromFile (file);
        if (verdict != Verdict::accepted)
        {
            printError (file.getFullPathName() + ": " + vesk::licensing::describe (verdict));
            return 1;
        }
        status();
        return 0;
    }
    if (verb == "deauthorise")
    {
        if (!licences.deauthorise())
        {
            printError ("cannot remove " + licences.getStoredLicenceFile().getFullPathName());
            return 1;
        }
        status();
        return 0;
    }
    return 2; // the parser admits no other verb
}
} // namespace

std::unique_ptr<Command> makeLicenceCommand (CLI::App& parent)
{
    return std::make_unique<LicenceCommand> (parent);
}
