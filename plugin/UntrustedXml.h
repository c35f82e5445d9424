#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** XML from outside (preset files, host states) is parsed only after the checks JUCE's reader
    does not make: a size limit, a nesting limit (the reader recurses once per level, so a deep
    document overflows the stack) and valid UTF-8 without NUL (after an invalid lead byte the
    reader steps past the end of its buffer), no processing instruction past the declaration
    (one inside an element sends the reader into an endless loop), and only well-formed character
    references with no document type (an unterminated "&#x" sends the reader past its buffer).
    Null when a check fails or the text is not XML. Any thread. */
std::unique_ptr<juce::XmlElement> parseUntrustedXml (const void* data, std::size_t size);
/** The same for a file, which is not read at all when it is larger than the limit. */
std::unique_ptr<juce::XmlElement> parseUntrustedXml (const juce::File& file);

namespace untrustedXml
{
constexpr std::size_t maximumBytes = 4 * 1024 * 1024;
constexpr int maximumDepth = 32;
} // namespace untrustedXml
