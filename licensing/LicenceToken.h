#pragma once

#include <juce_core/juce_core.h>

#include <array>

namespace vesk::licensing
{
using PublicKey = std::array<unsigned char, 32>;
using SecretKey = std::array<unsigned char, 64>;

/** Why a token was or was not accepted. */
enum class Verdict
{
    accepted,
    malformed,    ///< not a licence token at all
    badSignature, ///< changed, or not signed by the vendor
    otherProduct, ///< a genuine licence for another product
    expired,
    notStored ///< genuine, but it could not be saved
};

/** What a user is told about a verdict. */
juce::String describe (Verdict verdict);

/** A licence: who may use which product, since and until when, signed with the vendor's Ed25519
    key. As text: "KLF1." + the fields (base64) + "." + the signature (base64), so that it
    survives e-mail and copying. Any thread. */
struct LicenceToken
{
    juce::String product; ///< the plug-in's four-letter code
    juce::String licensee;
    juce::String email;
    juce::String serial;
    juce::String issued;  ///< YYYY-MM-DD
    juce::String expires; ///< YYYY-MM-DD, or empty for a perpetual licence

    /** The signed text of this licence. */
    juce::String sign (const SecretKey& key) const;

    /** Parses and checks a token: the signature against the key, then the product and the expiry
        (against `today`, YYYY-MM-DD). `token` is filled only when the verdict is accepted. */
    static Verdict verify (const juce::String& text, const PublicKey& key,
                           const juce::String& product, const juce::String& today,
                           LicenceToken& token);

    /** Today in the form tokens use (UTC). */
    static juce::String today();
    /** A new vendor key pair. */
    static void makeKeyPair (PublicKey& publicKey, SecretKey& secretKey);
    /** Hex text of a key, and back (false for anything that is not a key of that size). */
    template <std::size_t size>
    static juce::String toHex (const std::array<unsigned char, size>& key)
    {
        return juce::String::toHexString (key.data(), (int) size, 0);
    }
    template <std::size_t size>
    static bool fromHex (const juce::String& text, std::array<unsigned char, size>& key)
    {
        const auto clean = text.trim();
        if (clean.length() != (int) size * 2 || !clean.containsOnly ("0123456789abcdefABCDEF"))
            return false;
        for (std::size_t i = 0; i < size; ++i)
            key[i] = (unsigned char) clean.substring ((int) i * 2, (int) i * 2 + 2).getHexValue32();
        return true;
    }

    static constexpr int maximumLength = 4096;
};
} // namespace vesk::licensing
