#pragma once

#include "LicenceToken.h"

#include <atomic>

namespace vesk::licensing
{
/** Keeps the licence of one product: verifies keys against the vendor's public key, stores an
    accepted one atomically in the user's folder, reads it back at start-up and removes it on
    deauthorisation. Verification and files: message thread (or the tool's main thread). The
    demo flag: any thread, the audio thread included (it only reads an atomic). */
class LicenseManager
{
public:
    /** Reads the stored licence, if any. */
    LicenseManager (juce::String productCode, PublicKey vendorKey, juce::File storedLicence);

    /** Checks a key and, when it is genuine and current, stores it; a key that cannot be stored
        leaves the previous licence as it was. */
    Verdict authorise (const juce::String& text);
    /** A key from a file (refused unread when larger than any key). */
    Verdict authoriseFromFile (const juce::File& file);
    /** Removes the stored licence; back to demo mode. False when the file cannot be removed. */
    bool deauthorise();
    /** Reads the stored licence again (start-up; after another instance changed it). */
    void reload();

    /** Any thread. */
    bool isDemo() const noexcept { return demo.load (std::memory_order_relaxed); }
    /** The accepted licence (empty fields in demo mode). Message thread. */
    LicenceToken getLicence() const { return licence; }
    /** Why the stored licence, if there is one, is not in force. Message thread. */
    Verdict getStoredVerdict() const noexcept { return storedVerdict; }
    juce::File getStoredLicenceFile() const { return file; }

    /** Makes the date verification compares expiry with (tests). */
    void setToday (juce::String date) { today = std::move (date); }

private:
    juce::String product;
    PublicKey key;
    juce::File file;
    juce::String today;
    LicenceToken licence;
    Verdict storedVerdict = Verdict::malformed;
    std::atomic<bool> demo{true};
};
} // namespace vesk::licensing
