# Runs after JUCE's LV2 helper has written the bundle's Turtle files. JUCE writes the maker's
# e-mail as a bare address in angle brackets, which an LV2 host resolves as a path relative to
# the file; an e-mail is a mailto: IRI.
file(READ "${BUNDLE}/dsp.ttl" turtle)
string(REGEX REPLACE "foaf:mbox <([^>:]+@[^>]+)>" "foaf:mbox <mailto:\\1>" turtle "${turtle}")
file(WRITE "${BUNDLE}/dsp.ttl" "${turtle}")
