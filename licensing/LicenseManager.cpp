#include "LicenseManager.h"

#include "RegularFile.h"

namespace vesk::licensing
{
LicenseManager::LicenseManager (juce::String productCode, PublicKey vendorKey,
                                juce::File storedLicence)
    : product (std::move (productCode)), key (vendorKey), file (std::move (storedLicence)),
      today (LicenceToken::today())
{
    reload();
}

void LicenseManager::reload()
{
    LicenceToken read;
    storedVerdict = Verdict::malformed;
    // Every plug-in instance reads this at start: a link to a device or a FIFO must neither
    // block the host nor fill its memory.
    juce::MemoryBlock text;
    if (regularFile::read (file, LicenceToken::maximumLength, text))
        storedVerdict = LicenceToken::verify (text.toString(), key, product, today, read);
    licence = storedVerdict == Verdict::accepted ? read : LicenceToken();
    demo = storedVerdict != Verdict::accepted;
}

Verdict LicenseManager::authorise (const juce::String& text)
{
    LicenceToken accepted;
    const auto verdict = LicenceToken::verify (text, key, product, today, accepted);
    if (verdict != Verdict::accepted)
        return verdict;
    // Through a temporary file beside the licence: a failed write leaves the old one whole.
    if (!file.getParentDirectory().createDirectory())
        return Verdict::notStored;
    juce::TemporaryFile temporary (file);
    if (!temporary.getFile().replaceWithText (text.trim() + "\n")
        || !temporary.overwriteTargetFileWithTemporary())
        return Verdict::notStored;
    licence = accepted;
    storedVerdict = Verdict::accepted;
    demo = false;
    return verdict;
}

Verdict LicenseManager::authoriseFromFile (const juce::File& keyFile)
{
    juce::MemoryBlock text;
    if (!regularFile::read (keyFile, LicenceToken::maximumLength, text))
        return Verdict::malformed;
    return authorise (text.toString());
}

bool LicenseManager::deauthorise()
{
    if (file.exists() && !file.deleteFile())
        return false;
    reload();
    return true;
}
} // namespace vesk::licensing
