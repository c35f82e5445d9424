#include "UntrustedXml.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

namespace
{
/** The deepest nesting of elements, counted without parsing: comments, processing
    instructions, declarations and CDATA are skipped, and quoted attribute values are passed
    over. Returns more than the limit as soon as it is exceeded. */
int nestingDepth (const char* text, std::size_t size)
{
    int depth = 0, deepest = 0;
    const auto startsWith = [&] (std::size_t at, const char* prefix)
    {
        const auto length = std::strlen (prefix);
        return at + length <= size && std::memcmp (text + at, prefix, length) == 0;
    };
    const auto skipPast = [&] (std::size_t at, const char* end)
    {
        const auto length = std::strlen (end);
        for (; at + length <= size; ++at)
            if (std::memcmp (text + at, end, length) == 0)
                return at + length;
        return size;
    };
    for (std::size_t i = 0; i < size;)
    {
        if (text[i] != '<')
        {
            ++i;
            continue;
        }
        if (startsWith (i, "<!--"))
            i = skipPast (i, "-->");
        else if (startsWith (i, "<![CDATA["))
            i = skipPast (i, "]]>");
        else if (startsWith (i, "<?") || startsWith (i, "<!"))
            i = skipPast (i, ">");
        else if (startsWith (i, "</"))
        {
            --depth;
            i = skipPast (i, ">");
        }
        else
        {
            // An opening tag: find its end outside quotes; "/>" closes it at once.
            char quote = 0;
            std::size_t j = i + 1;
            for (; j < size; ++j)
            {
                if (quote != 0)
                    quote = text[j] == quote ? 0 : quote;
                else if (text[j] == '"' || text[j] == '\'')
                    quote = text[j];
                else if (text[j] == '>')
                    break;
            }
            const bool selfClosing = j < size && j > i && text[j - 1] == '/';
            if (!selfClosing)
                deepest = std::max (deepest, ++depth);
            if (deepest > untrustedXml::maximumDepth)
                return deepest;
            i = j + 1;
        }
    }
    return deepest;
}

/** Processing instructions other than a leading XML declaration. JUCE's reader loops forever on
    one inside an element followed by text ("<a><?x?>8</a>"); no file of ours has any. */
bool hasInnerProcessingInstruction (const char* text, std::size_t size)
{
    std::size_t start = 0;
    while (start < size
           && (std::isspace (static_cast<unsigned char> (text[start])) != 0
               || static_cast<unsigned char> (text[start]) >= 0xEF))
        ++start; // white space and a byte-order mark
    if (start + 5 <= size && std::memcmp (text + start, "<?xml", 5) == 0)
        start += 5;
    for (std::size_t i = start; i + 1 < size; ++i)
        if (text[i] == '<' && text[i + 1] == '?')
            return true;
    return false;
}

/** True when every '&' starts one of the five named references or a numeric one of a valid
    code point, and no document type is declared. JUCE's reader steps past the end of its buffer
    on an unterminated "&#x", and a declared entity is expanded from the document type (which
    may name a file to read); what our writers produce never needs either. */
bool referencesAreWellFormed (const char* text, std::size_t size)
{
    const auto isHex = [] (char c) { return std::isxdigit (static_cast<unsigned char> (c)) != 0; };
    const auto isDigit = [] (char c) { return std::isdigit (static_cast<unsigned char> (c)) != 0; };
    for (std::size_t i = 0; i < size; ++i)
    {
        if (text[i] == '<' && i + 9 <= size && std::strncmp (text + i, "<!DOCTYPE", 9) == 0)
            return false;
        if (text[i] != '&')
            continue;
        // The longest reference we accept, "&#1114111;", is ten bytes long.
        const auto semicolon = static_cast<const char*> (
            std::memchr (text + i, ';', std::min<std::size_t> (size - i, 10)));
        if (semicolon == nullptr)
            return false;
        const std::string name (text + i + 1, semicolon);
        if (name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos")
            continue;
        if (name.size() < 2 || name[0] != '#')
            return false;
        const bool hex = name[1] == 'x' || name[1] == 'X';
        const auto digits = name.substr (hex ? 2 : 1);
        if (digits.empty() || !std::all_of (digits.begin(), digits.end(), hex ? isHex : isDigit))
            return false;
        const auto code = std::stoul (digits, nullptr, hex ? 16 : 10);
        if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
    }
    return true;
}
} // namespace

std::unique_ptr<juce::XmlElement> parseUntrustedXml (const void* data, std::size_t size)
{
    if (data == nullptr || size == 0 || size > untrustedXml::maximumBytes)
        return nullptr;
    const auto* text = static_cast<const char*> (data);
    if (std::memchr (text, 0, size) != nullptr
        || !juce::CharPointer_UTF8::isValidString (text, static_cast<int> (size)))
        return nullptr;
    if (nestingDepth (text, size) > untrustedXml::maximumDepth
        || hasInnerProcessingInstruction (text, size) || !referencesAreWellFormed (text, size))
        return nullptr;
    return juce::parseXML (juce::String::fromUTF8 (text, static_cast<int> (size)));
}

std::unique_ptr<juce::XmlElement> parseUntrustedXml (const juce::File& file)
{
    if (!file.existsAsFile()
        || file.getSize() > static_cast<juce::int64> (untrustedXml::maximumBytes))
        return nullptr;
    juce::MemoryBlock data;
    if (!file.loadFileAsData (data))
        return nullptr;
    return parseUntrustedXml (data.getData(), data.getSize());
}
