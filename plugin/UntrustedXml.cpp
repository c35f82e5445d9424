#include "UntrustedXml.h"

#include "RegularFile.h"

#include <cstring>
#include <vector>

// XML from outside is read here, by a reader of our own: JUCE's recurses once per level of
// nesting (a stray quote was enough to hide the depth from a check made beside it), loops on
// processing instructions inside elements and steps past its buffer on unterminated
// references. This one keeps its open elements on a list, takes well-formed XML only, and
// builds the same elements JUCE's would for it.

namespace
{
bool isSpace (char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool isNameStart (char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
}

bool isNameChar (char c)
{
    return isNameStart (c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

class Reader
{
public:
    Reader (const char* data, std::size_t size) : p (data), end (data + size) {}

    std::unique_ptr<juce::XmlElement> read()
    {
        if (startsWith ("\xEF\xBB\xBF"))
            p += 3;
        skipSpace();
        if (startsWith ("<?xml") && p + 5 < end && (isSpace (p[5]) || p[5] == '?'))
            if (!skipPast ("?>"))
                return nullptr;
        if (!skipMisc() || !startsWith ("<") || !readDocumentElement() || !skipMisc() || p != end)
            return nullptr;
        return std::move (root);
    }

private:
    bool startsWith (const char* prefix) const
    {
        const auto length = std::strlen (prefix);
        return static_cast<std::size_t> (end - p) >= length && std::memcmp (p, prefix, length) == 0;
    }

    bool skipPast (const char* terminator)
    {
        const auto length = std::strlen (terminator);
        for (; static_cast<std::size_t> (end - p) >= length; ++p)
            if (std::memcmp (p, terminator, length) == 0)
            {
                p += length;
                return true;
            }
        return false;
    }

    void skipSpace()
    {
        while (p < end && isSpace (*p))
            ++p;
    }

    /** White space and comments; a document type or processing instruction is refused. */
    bool skipMisc()
    {
        for (skipSpace(); startsWith ("<!--"); skipSpace())
            if (!skipPast ("-->"))
                return false;
        return !startsWith ("<?") && !startsWith ("<!");
    }

    bool readName (juce::String& name)
    {
        if (p >= end || !isNameStart (*p))
            return false;
        const char* start = p;
        while (p < end && isNameChar (*p))
            ++p;
        name = juce::String (start, static_cast<std::size_t> (p - start));
        return true;
    }

    /** One reference after its '&': the five named ones and numeric ones of a valid code
        point. */
    bool readReference (juce::String& text)
    {
        const auto* semicolon = static_cast<const char*> (std::memchr (
            p, ';', static_cast<std::size_t> (std::min<std::ptrdiff_t> (end - p, 10))));
        if (semicolon == nullptr)
            return false;
        const std::string name (p, semicolon);
        p = semicolon + 1;
        static const std::pair<const char*, char> named[] = {{"amp", '&'},
                                                             {"lt", '<'},
                                                             {"gt", '>'},
                                                             {"quot", '"'},
                                                             {"apos", '\''}};
        for (auto const& [key, character] : named)
            if (name == key)
            {
                text << character;
                return true;
            }
        if (name.size() < 2 || name[0] != '#')
            return false;
        const bool hex = name[1] == 'x';
        const auto digits = name.substr (hex ? 2 : 1);
        if (digits.empty() || digits.size() > 7)
            return false;
        juce::uint32 code = 0;
        for (const char c : digits)
        {
            const int digit = c >= '0' && c <= '9'          ? c - '0'
                              : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10
                              : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                            : -1;
            if (digit < 0)
                return false;
            code = code * (hex ? 16u : 10u) + static_cast<juce::uint32> (digit);
        }
        if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        text << juce::String::charToString (static_cast<juce::juce_wchar> (code));
        return true;
    }

    /** Characters up to a delimiter, references decoded; false on a stray '<' or a bad
        reference. */
    bool readCharacters (juce::String& text, char delimiter)
    {
        while (p < end && *p != delimiter)
        {
            if (*p == '&')
            {
                ++p;
                if (!readReference (text))
                    return false;
                continue;
            }
            if (*p == '<')
                return false;
            const char* start = p;
            while (p < end && *p != delimiter && *p != '&' && *p != '<')
                ++p;
            text += juce::String::fromUTF8 (start, static_cast<int> (p - start));
        }
        return p < end;
    }

    /** A start tag after its '<'; closed says whether it ended with "/>". */
    std::unique_ptr<juce::XmlElement> readStartTag (bool& closed)
    {
        juce::String name;
        if (!readName (name))
            return nullptr;
        auto element = std::make_unique<juce::XmlElement> (name);
        for (;;)
        {
            const bool spaced = p < end && isSpace (*p);
            skipSpace();
            if (startsWith ("/>") || startsWith (">"))
            {
                closed = *p == '/';
                p += closed ? 2 : 1;
                return element;
            }
            juce::String attribute, value;
            if (!spaced || !readName (attribute) || element->hasAttribute (attribute))
                return nullptr;
            skipSpace();
            if (p >= end || *p != '=')
                return nullptr;
            ++p;
            skipSpace();
            if (p >= end || (*p != '"' && *p != '\''))
                return nullptr;
            const char quote = *p++;
            if (!readCharacters (value, quote))
                return nullptr;
            ++p;
            element->setAttribute (attribute, value);
        }
    }

    bool readDocumentElement()
    {
        // The open elements, innermost last; each is owned by its parent (the first by root).
        std::vector<juce::XmlElement*> open;
        juce::String text;
        const auto flushText = [&]
        {
            if (text.containsNonWhitespaceChars())
                open.back()->addChildElement (juce::XmlElement::createTextElement (text));
            text.clear();
        };
        do
        {
            if (p >= end)
                return false;
            if (startsWith ("<!--"))
            {
                p += 4;
                if (!skipPast ("-->"))
                    return false;
            }
            else if (startsWith ("<![CDATA["))
            {
                flushText();
                p += 9;
                const char* start = p;
                if (!skipPast ("]]>"))
                    return false;
                open.back()->addChildElement (juce::XmlElement::createTextElement (
                    juce::String::fromUTF8 (start, static_cast<int> (p - 3 - start))));
            }
            else if (startsWith ("</"))
            {
                p += 2;
                juce::String name;
                if (open.empty() || !readName (name) || name != open.back()->getTagName())
                    return false;
                skipSpace();
                if (p >= end || *p != '>')
                    return false;
                ++p;
                flushText();
                open.pop_back();
            }
            else if (startsWith ("<"))
            {
                if (!open.empty())
                    flushText();
                ++p;
                bool closed = false;
                auto element = readStartTag (closed);
                if (element == nullptr)
                    return false;
                auto* raw = element.get();
                if (open.empty())
                    root = std::move (element);
                else
                    open.back()->addChildElement (element.release());
                if (!closed)
                {
                    if (static_cast<int> (open.size()) >= untrustedXml::maximumDepth)
                        return false;
                    open.push_back (raw);
                }
            }
            else if (!readCharacters (text, '<'))
            {
                return false;
            }
        } while (!open.empty());
        return true;
    }

    const char* p;
    const char* end;
    std::unique_ptr<juce::XmlElement> root;
};
} // namespace

std::unique_ptr<juce::XmlElement> parseUntrustedXml (const void* data, std::size_t size)
{
    if (data == nullptr || size == 0 || size > untrustedXml::maximumBytes)
        return nullptr;
    const auto* text = static_cast<const char*> (data);
    if (std::memchr (text, 0, size) != nullptr
        || !juce::CharPointer_UTF8::isValidString (text, static_cast<int> (size)))
        return nullptr;
    return Reader (text, size).read();
}

std::unique_ptr<juce::XmlElement> parseUntrustedXml (const juce::File& file)
{
    juce::MemoryBlock data;
    if (!regularFile::read (file, untrustedXml::maximumBytes, data))
        return nullptr;
    return parseUntrustedXml (data.getData(), data.getSize());
}
