#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** XML from outside (preset files, host states): well-formed XML only, within a size and a
    nesting limit, in valid UTF-8 without NUL, with no document type, no processing instruction
    past the declaration and only the five named and numeric character references. Read by a
    reader that keeps its open elements on a list instead of recursing (JUCE's recurses once
    per level and has tripped over stray quotes, processing instructions and unterminated
    references), into the elements JUCE's reader would make of it. Null when it is not such a
    document. Any thread. */
std::unique_ptr<juce::XmlElement> parseUntrustedXml (const void* data, std::size_t size);
/** The same for a file: only a regular file, and never more than the limit is read. */
std::unique_ptr<juce::XmlElement> parseUntrustedXml (const juce::File& file);

namespace untrustedXml
{
constexpr std::size_t maximumBytes = 4 * 1024 * 1024;
constexpr int maximumDepth = 32;
} // namespace untrustedXml
