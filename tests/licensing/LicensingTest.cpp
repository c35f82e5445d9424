#include "AllocationGuard.h"
#include "DemoDisrupter.h"
#include "KelfinerAudioProcessor.h"
#include "LicenseManager.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace vesk::licensing;

namespace
{
/** A key pair made for the run, and a licence signed with it. */
struct Keys
{
    Keys() { LicenceToken::makeKeyPair (publicKey, secretKey); }
    juce::String licence (const juce::String& product = "Klfn",
                          const juce::String& expires = {}) const
    {
        LicenceToken token;
        token.product = product;
        token.licensee = "Ada Lovelace";
        token.email = "ada@example.org";
        token.serial = "KLF-0001";
        token.issued = "2026-01-02";
        token.expires = expires;
        return token.sign (secretKey);
    }
    PublicKey publicKey;
    SecretKey secretKey;
};

Verdict check (const Keys& keys, const juce::String& text, const juce::String& today = "2026-06-01")
{
    LicenceToken token;
    return LicenceToken::verify (text, keys.publicKey, "Klfn", today, token);
}

juce::File freshFolder()
{
    auto folder = juce::File::createTempFile ("licence");
    folder.createDirectory();
    return folder;
}
} // namespace

TEST (LicenceToken, OnlyGenuineCurrentKeysForThisProductPass)
{
    const Keys keys;
    const auto text = keys.licence();
    EXPECT_EQ (check (keys, text), Verdict::accepted);
    EXPECT_EQ (check (keys, "  " + text.substring (0, 40) + "\r\n" + text.substring (40) + "\n"),
               Verdict::accepted); // as pasted from an e-mail
    LicenceToken token;
    ASSERT_EQ (LicenceToken::verify (text, keys.publicKey, "Klfn", "2026-06-01", token),
               Verdict::accepted);
    EXPECT_EQ (token.licensee, "Ada Lovelace");

    // One changed character anywhere: refused, whatever it hits.
    for (int i = 0; i < text.length(); ++i)
    {
        auto changed = text;
        const auto c = text[i];
        changed = text.replaceSection (i, 1, juce::String::charToString (c == 'A' ? 'B' : 'A'));
        EXPECT_NE (check (keys, changed), Verdict::accepted) << "changed at " << i;
    }
    EXPECT_EQ (check (keys, keys.licence ("Othr")), Verdict::otherProduct);
    EXPECT_EQ (check (keys, keys.licence ("Klfn", "2026-05-31")), Verdict::expired);
    EXPECT_EQ (check (keys, keys.licence ("Klfn", "2026-06-01")), Verdict::accepted);
    const Keys otherVendor;
    EXPECT_EQ (check (otherVendor, text), Verdict::badSignature);
    for (const char* junk : {"", "KLF1.", "KLF1..", "KLF1.abc.def", "hello", "KLF1.\xff\xfe.zz"})
        EXPECT_EQ (check (keys, juce::String::fromUTF8 (junk)), Verdict::malformed) << junk;
}

TEST (LicenseManager, StoresRemovesAndKeepsWhatItHadOnFailure)
{
    const Keys keys;
    const auto folder = freshFolder();
    const auto file = folder.getChildFile ("Vesk Digital/Kelfiner/Kelfiner.licence");
    {
        LicenseManager licences ("Klfn", keys.publicKey, file);
        EXPECT_TRUE (licences.isDemo());
        EXPECT_EQ (licences.authorise (keys.licence ("Othr")), Verdict::otherProduct);
        EXPECT_FALSE (file.exists());
        EXPECT_EQ (licences.authorise (keys.licence()), Verdict::accepted);
        EXPECT_FALSE (licences.isDemo());
    }
    LicenseManager reopened ("Klfn", keys.publicKey, file);
    EXPECT_FALSE (reopened.isDemo()); // read back at start-up
    EXPECT_EQ (reopened.getLicence().serial, "KLF-0001");

    // Refused keys and unusable files leave the stored licence alone.
    const auto stored = file.loadFileAsString();
    const auto junk = folder.getChildFile ("junk.key");
    juce::MemoryBlock random (4096);
    juce::Random (3).fillBitsRandomly (random.getData(), random.getSize());
    junk.replaceWithData (random.getData(), random.getSize());
    EXPECT_EQ (reopened.authoriseFromFile (junk), Verdict::malformed);
    junk.replaceWithText ("");
    EXPECT_EQ (reopened.authoriseFromFile (junk), Verdict::malformed);
    {
        juce::FileOutputStream big (junk);
        big.setPosition (0);
        big.truncate();
        for (int i = 0; i < 100; ++i)
            big.write (random.getData(), random.getSize()); // far larger than any key
    }
    EXPECT_EQ (reopened.authoriseFromFile (junk), Verdict::malformed);
    EXPECT_EQ (file.loadFileAsString(), stored);
    EXPECT_FALSE (reopened.isDemo());

    if (geteuid() != 0) // root writes into read-only folders anyway
    {
        chmod (file.getParentDirectory().getFullPathName().toRawUTF8(), 0500);
        const Keys other;
        LicenseManager locked ("Klfn", keys.publicKey, file);
        EXPECT_EQ (locked.authorise (keys.licence ("Klfn", "2099-01-01")), Verdict::notStored);
        EXPECT_EQ (file.loadFileAsString(), stored);
        chmod (file.getParentDirectory().getFullPathName().toRawUTF8(), 0700);
    }

    // A folder that cannot be made (a file stands in its way): refused as not stored.
    folder.getChildFile ("blocked").replaceWithText ("a file");
    LicenseManager blocked ("Klfn", keys.publicKey,
                            folder.getChildFile ("blocked/Kelfiner.licence"));
    EXPECT_EQ (blocked.authorise (keys.licence()), Verdict::notStored);
    EXPECT_TRUE (blocked.isDemo());

    EXPECT_TRUE (reopened.deauthorise());
    EXPECT_TRUE (reopened.isDemo());
    EXPECT_FALSE (file.exists());
    folder.deleteRecursively();
}

TEST (DemoDisrupter, MutesAtIrregularIntervalsWithFadesAndLeavesTheRestAlone)
{
    const double rate = 8000.0; // ten minutes at a low rate keeps the test quick
    const int total = static_cast<int> (600.0 * rate);
    const int fade = static_cast<int> (std::lround (DemoDisrupter::fadeSeconds * rate));
    for (const int blockSize : {1, 64, 4096})
    {
        DemoDisrupter disrupter;
        disrupter.prepare (rate, 1234);
        std::vector<float> left (static_cast<std::size_t> (total)), right (left.size());
        juce::Random random (9);
        for (std::size_t n = 0; n < left.size(); ++n)
            left[n] = right[n] = 0.5f + 0.1f * random.nextFloat(); // never 0 of itself
        const auto input = left;
        {
            const vesk::test::AllocationGuard guard;
            for (int start = 0; start < total; start += blockSize)
            {
                float* channels[] = {left.data() + start, right.data() + start};
                disrupter.process (channels, 2, std::min (blockSize, total - start));
            }
            if (vesk::test::AllocationGuard::isCounting())
            {
                EXPECT_EQ (guard.count(), 0u);
            }
        }
        // Stretches touched by the disrupter: where the output differs from the input.
        std::vector<std::pair<int, int>> stretches;
        for (int n = 0; n < total; ++n)
        {
            const bool touched = left[(size_t) n] != input[(size_t) n];
            if (touched && (stretches.empty() || stretches.back().second != n))
                stretches.push_back ({n, n + 1});
            else if (touched)
                stretches.back().second = n + 1;
            ASSERT_EQ (left[(size_t) n], right[(size_t) n]);
            if (n > 0) // no step larger than a fade step plus the material's own
            {
                ASSERT_LE (std::abs (left[(size_t) n] - left[(size_t) n - 1]),
                           0.6f / (float) fade + 0.1f)
                    << n;
            }
        }
        ASSERT_GE (stretches.size(), 6u) << blockSize;
        std::set<int> gaps;
        for (std::size_t i = 0; i < stretches.size(); ++i)
        {
            const double length = (stretches[i].second - stretches[i].first) / rate;
            if (stretches[i].second < total) // the last may be cut by the end
            {
                EXPECT_GE (length, DemoDisrupter::shortestMuteSeconds - 0.01) << blockSize;
                EXPECT_LE (length, DemoDisrupter::longestMuteSeconds + 0.01) << blockSize;
            }
            if (i > 0)
            {
                const double gap = (stretches[i].first - stretches[i - 1].second) / rate;
                EXPECT_GE (gap, DemoDisrupter::shortestGapSeconds - 0.01);
                EXPECT_LE (gap, DemoDisrupter::longestGapSeconds + 0.01);
                gaps.insert (stretches[i].first - stretches[i - 1].second);
            }
        }
        EXPECT_GT (gaps.size(), 3u); // irregular
    }
}

TEST (DemoMode, TheProcessorMutesUntilAuthorised)
{
    const Keys keys;
    const auto folder = freshFolder();
    KelfinerAudioProcessor processor;
    processor.setLicenseManager (std::make_unique<LicenseManager> (
        "Klfn", keys.publicKey, folder.getChildFile ("Kelfiner.licence")));
    processor.setNonRealtime (true);
    processor.prepareToPlay (8000.0, 1024);
    EXPECT_TRUE (processor.isInDemoMode());
    const auto silentBlocks = [&processor]
    {
        juce::AudioBuffer<float> block (2, 1024);
        juce::MidiBuffer midi;
        int silent = 0;
        for (int b = 0; b < 8000 * 100 / 1024; ++b) // 100 s: at least one gap
        {
            for (int c = 0; c < 2; ++c)
                for (int n = 0; n < 1024; ++n)
                    block.setSample (c, n, 0.3f * std::sin (0.05f * (float) (b * 1024 + n)));
            processor.processBlock (block, midi);
            silent += block.getMagnitude (0, 1024) == 0.0f ? 1 : 0;
        }
        return silent;
    };
    EXPECT_GE (silentBlocks(), 10); // two seconds and more of silence, at 1024 samples a block
    ASSERT_EQ (processor.getLicenseManager()->authorise (keys.licence()), Verdict::accepted);
    EXPECT_EQ (silentBlocks(), 0);
    EXPECT_FALSE (processor.isInDemoMode());
    folder.deleteRecursively();
}
