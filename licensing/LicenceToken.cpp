#include "LicenceToken.h"

#include <sodium.h>

#include <cstring>
#include <ctime>

namespace vesk::licensing
{
namespace
{
constexpr const char* prefix = "KLF1.";
const char* fieldNames[] = {"product", "licensee", "email", "serial", "issued", "expires"};

bool ensureSodium() { return sodium_init() >= 0; }

juce::String encode (const void* data, std::size_t size)
{
    return juce::Base64::toBase64 (data, size);
}

bool decode (const juce::String& text, juce::MemoryBlock& out)
{
    {
        juce::MemoryOutputStream stream (out, false);
        if (!juce::Base64::convertFromBase64 (stream, text))
            return false;
    }
    // Only the one canonical spelling: base64 readers skip unused bits and padding, and a key
    // that still reads after a changed character would look as if it had not been changed.
    return encode (out.getData(), out.getSize()) == text;
}

bool isDate (const juce::String& text)
{
    return text.length() == 10 && text[4] == '-' && text[7] == '-'
           && text.removeCharacters ("-").containsOnly ("0123456789");
}

juce::String payloadOf (const LicenceToken& token)
{
    const juce::String* values[] = {&token.product, &token.licensee, &token.email,
                                    &token.serial,  &token.issued,   &token.expires};
    juce::String payload;
    for (int i = 0; i < 6; ++i)
        payload << fieldNames[i] << "=" << values[i]->replaceCharacters ("\n\r", "  ") << "\n";
    return payload;
}
} // namespace

juce::String describe (Verdict verdict)
{
    switch (verdict)
    {
        case Verdict::accepted: return "The licence is valid.";
        case Verdict::malformed:
            return "This is not a licence key (it may be cut short or changed).";
        case Verdict::badSignature:
            return "This licence key is not genuine: it was changed or not issued by Vesk Digital.";
        case Verdict::otherProduct: return "This licence key is for another product.";
        case Verdict::expired: return "This licence key has expired.";
        case Verdict::notStored:
            return "The licence key is valid, but it could not be saved (is the disk full or the "
                   "folder read-only?). The previous licence was kept.";
    }
    return {};
}

juce::String LicenceToken::sign (const SecretKey& key) const
{
    if (!ensureSodium())
        return {};
    const auto payload = payloadOf (*this);
    const auto* bytes = reinterpret_cast<const unsigned char*> (payload.toRawUTF8());
    const auto length = payload.getNumBytesAsUTF8();
    unsigned char signature[crypto_sign_BYTES];
    crypto_sign_detached (signature, nullptr, bytes, length, key.data());
    return prefix + encode (bytes, length) + "." + encode (signature, sizeof (signature));
}

Verdict LicenceToken::verify (const juce::String& text, const PublicKey& key,
                              const juce::String& product, const juce::String& today,
                              LicenceToken& token)
{
    if (!ensureSodium())
        return Verdict::malformed;
    // Keys arrive pasted from e-mails: surrounding white space and line breaks are not the key.
    const auto clean = text.removeCharacters (" \t\r\n");
    if (clean.length() > maximumLength || !clean.startsWith (prefix))
        return Verdict::malformed;
    const auto body = clean.substring ((int) std::strlen (prefix));
    const auto dot = body.indexOfChar ('.');
    if (dot <= 0)
        return Verdict::malformed;
    juce::MemoryBlock payload, signature;
    if (!decode (body.substring (0, dot), payload) || !decode (body.substring (dot + 1), signature)
        || signature.getSize() != crypto_sign_BYTES || payload.isEmpty())
        return Verdict::malformed;
    if (crypto_sign_verify_detached (static_cast<const unsigned char*> (signature.getData()),
                                     static_cast<const unsigned char*> (payload.getData()),
                                     payload.getSize(), key.data())
        != 0)
        return Verdict::badSignature;

    // Signed by the vendor; the fields are still read with care.
    if (!juce::CharPointer_UTF8::isValidString (static_cast<const char*> (payload.getData()),
                                                (int) payload.getSize()))
        return Verdict::malformed;
    LicenceToken read;
    juce::String* targets[] = {&read.product, &read.licensee, &read.email,
                               &read.serial,  &read.issued,   &read.expires};
    int found = 0;
    for (const auto& line : juce::StringArray::fromLines (payload.toString()))
        for (int i = 0; i < 6; ++i)
            if (line.startsWith (juce::String (fieldNames[i]) + "="))
            {
                *targets[i] = line.fromFirstOccurrenceOf ("=", false, false);
                found |= 1 << i;
            }
    if ((found & 0x1F) != 0x1F || !isDate (read.issued)
        || (read.expires.isNotEmpty() && !isDate (read.expires)))
        return Verdict::malformed;
    if (read.product != product)
        return Verdict::otherProduct;
    if (read.expires.isNotEmpty() && read.expires < today)
        return Verdict::expired;
    token = read;
    return Verdict::accepted;
}

juce::String LicenceToken::today()
{
    const auto now = std::time (nullptr);
    std::tm utc{};
    gmtime_r (&now, &utc);
    char text[16];
    std::strftime (text, sizeof (text), "%Y-%m-%d", &utc);
    return text;
}

void LicenceToken::makeKeyPair (PublicKey& publicKey, SecretKey& secretKey)
{
    if (ensureSodium())
        crypto_sign_keypair (publicKey.data(), secretKey.data());
}
} // namespace vesk::licensing
