// kelfiner-licence-tool keygen FOLDER
//     writes FOLDER/public.key (goes into the product) and FOLDER/secret.key (stays with the
//     vendor, readable by its owner only)
// kelfiner-licence-tool sign SECRET-KEY-FILE --name NAME --email EMAIL --serial SERIAL
//                          [--product Klfn] [--issued YYYY-MM-DD] [--expires YYYY-MM-DD]
//     prints a licence key
#include "LicenceToken.h"

#include <cstdio>
#include <sys/stat.h>

using vesk::licensing::LicenceToken;

namespace
{
int fail (const juce::String& message)
{
    std::fprintf (stderr, "kelfiner-licence-tool: %s\n", message.toRawUTF8());
    return 1;
}
} // namespace

int main (int argc, char** argv)
{
    juce::StringArray args;
    for (int i = 1; i < argc; ++i)
        args.add (juce::String::fromUTF8 (argv[i]));
    if (args.size() == 2 && args[0] == "keygen")
    {
        const juce::File folder = juce::File::getCurrentWorkingDirectory().getChildFile (args[1]);
        if (!folder.createDirectory())
            return fail ("cannot make " + folder.getFullPathName());
        const auto secretFile = folder.getChildFile ("secret.key");
        if (secretFile.exists())
            return fail (secretFile.getFullPathName() + " exists; not replaced");
        vesk::licensing::PublicKey publicKey;
        vesk::licensing::SecretKey secretKey;
        LicenceToken::makeKeyPair (publicKey, secretKey);
        if (!secretFile.replaceWithText (LicenceToken::toHex (secretKey) + "\n")
            || chmod (secretFile.getFullPathName().toRawUTF8(), 0600) != 0
            || !folder.getChildFile ("public.key")
                    .replaceWithText (LicenceToken::toHex (publicKey) + "\n"))
            return fail ("cannot write the keys to " + folder.getFullPathName());
        std::printf ("public key: %s\n", LicenceToken::toHex (publicKey).toRawUTF8());
        return 0;
    }
    if (args.size() >= 2 && args[0] == "sign")
    {
        vesk::licensing::SecretKey secretKey;
        const auto keyFile = juce::File::getCurrentWorkingDirectory().getChildFile (args[1]);
        if (!LicenceToken::fromHex (keyFile.loadFileAsString(), secretKey))
            return fail ("not a secret key file: " + keyFile.getFullPathName());
        LicenceToken token;
        token.product = "Klfn";
        token.issued = LicenceToken::today();
        for (int i = 2; i + 1 < args.size(); i += 2)
        {
            const auto& option = args[i];
            const auto& value = args[i + 1];
            if (option == "--name")
                token.licensee = value;
            else if (option == "--email")
                token.email = value;
            else if (option == "--serial")
                token.serial = value;
            else if (option == "--product")
                token.product = value;
            else if (option == "--issued")
                token.issued = value;
            else if (option == "--expires")
                token.expires = value;
            else
                return fail ("unknown option " + option);
        }
        if (token.licensee.isEmpty() || token.email.isEmpty() || token.serial.isEmpty())
            return fail ("--name, --email and --serial are needed");
        std::printf ("%s\n", token.sign (secretKey).toRawUTF8());
        return 0;
    }
    return fail ("usage: keygen FOLDER | sign SECRET-KEY-FILE --name N --email E --serial S "
                 "[--expires YYYY-MM-DD]");
}
