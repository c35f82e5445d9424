// Licence keys from anywhere (pasted text, a key file), checked as the plug-ins check them.
#include "LicenceToken.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using namespace vesk::licensing;
    static const auto keys = []
    {
        std::pair<PublicKey, SecretKey> made;
        LicenceToken::makeKeyPair (made.first, made.second);
        return made;
    }();
    const auto text = juce::String::fromUTF8 (reinterpret_cast<const char*> (data), (int) size);
    LicenceToken token;
    const auto verdict = LicenceToken::verify (text, keys.first, "Klfn", "2026-06-01", token);
    // Nothing but the holder of the secret key makes a key this check accepts.
    if (verdict == Verdict::accepted)
        __builtin_trap();
    return 0;
}
