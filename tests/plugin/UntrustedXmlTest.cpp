// XML from outside: preset files and the settings record of a host state.
#include "UntrustedXml.h"
#include "KelfinerAudioProcessor.h"
#include "ProcessorHelpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

namespace
{
std::unique_ptr<juce::XmlElement> parse (std::string const& text)
{
    return parseUntrustedXml (text.data(), text.size());
}

std::string repeated (std::string const& piece, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += piece;
    return text;
}
} // namespace

// A document nested 200000 deep once overflowed the stack, an invalid UTF-8 byte made JUCE's
// reader run past its buffer, a processing instruction inside an element made it loop and an
// unterminated "&#x" sent it past its buffer (the last two found by fuzzing).
TEST (UntrustedXml, DepthSizeAndEncodingAreCheckedFirst)
{
    EXPECT_NE (parse ("<Preset a=\"x > y\"><b/><!-- <c> --><d><![CDATA[<e>]]></d></Preset>"),
               nullptr);

    std::string deep = "<Preset>";
    for (int i = 0; i < 200000; ++i)
        deep += "<a>";
    EXPECT_EQ (parse (deep), nullptr);
    std::string allowed = "<Preset>";
    for (int i = 1; i < untrustedXml::maximumDepth; ++i)
        allowed += "<a>";
    for (int i = 1; i < untrustedXml::maximumDepth; ++i)
        allowed += "</a>";
    EXPECT_NE (parse (allowed + "</Preset>"), nullptr) << "as deep as allowed";

    EXPECT_EQ (parse ("<a>\xff"), nullptr);
    // A processing instruction inside an element made JUCE's reader loop forever (found by
    // fuzzing); the declaration at the top is still fine.
    EXPECT_EQ (parse ("<a><?x?>8</a>"), nullptr);
    EXPECT_NE (parse ("  <?xml version=\"1.0\"?>\n<a>8</a>"), nullptr);
    EXPECT_EQ (parse (std::string ("<a>\0</a>", 8)), nullptr);
    // An unterminated "&#x" sent the reader past its buffer (found by fuzzing); the references
    // JUCE's writer produces still read back.
    EXPECT_EQ (parse ("<a>B&#x"), nullptr);
    EXPECT_EQ (parse ("<a>&#x;</a>"), nullptr);
    EXPECT_EQ (parse ("<a>&#0;</a>"), nullptr);
    EXPECT_EQ (parse ("<a>&e;</a>"), nullptr);
    EXPECT_EQ (parse ("<xa&;=>"), nullptr);
    EXPECT_EQ (parse ("<a>&#;</a>"), nullptr);
    EXPECT_NE (parse ("<a>&#1114111;&#x10FFFF;</a>"), nullptr);
    EXPECT_EQ (parse ("<a>&#x110000;</a>"), nullptr);
    EXPECT_EQ (parse ("<!DOCTYPE a [<!ENTITY e \"x\">]><a/>"), nullptr);
    const auto escaped = parse ("<a n=\"&quot;&amp;&apos;\">&lt;&gt;&#x9;&#65;</a>");
    ASSERT_NE (escaped, nullptr);
    EXPECT_EQ (escaped->getStringAttribute ("n"), "\"&'");
    EXPECT_EQ (escaped->getAllSubText(), "<>\tA");
    EXPECT_EQ (parse ("<a>" + std::string (untrustedXml::maximumBytes, ' ') + "</a>"), nullptr);

    // The plug-in's preset entrance refuses such files and keeps its settings.
    KelfinerAudioProcessor processor;
    processor.setParameter (4, 0.75f);
    const auto file = juce::File::createTempFile (".xml");
    file.replaceWithText (juce::String (deep));
    EXPECT_FALSE (processor.importFromPresetFile (file));
    file.replaceWithData ("<a>\xff", 4);
    EXPECT_FALSE (processor.importFromPresetFile (file));
    file.deleteFile();
    EXPECT_NEAR (processor.getParameter (4), 0.75f, 1e-6f);
}

// A stray quote in a tag (where JUCE's reader takes no value) once hid the nesting from the
// depth check, and the reader recursed once per "<a>" after it: in the tool, and in a host
// restoring a state whose settings record held it.
TEST (UntrustedXml, StrayQuotesAndOtherMalformedTagsAreRefused)
{
    const auto deep = repeated ("<a>", 50000);
    for (auto const* start : {"<Preset><x \"", "<Preset><x '", "<Preset><x y=z\"",
                              "<Preset><x y=\"1\"z=\"2\">", "<Preset><x y=\"<\">"})
        EXPECT_EQ (parse (start + deep), nullptr) << start;
    for (auto const* malformed :
         {"<a></b>", "<a>", "<a/><b/>", "<a x=\"1\" x=\"2\"/>", "<a x=1/>", "<a><?x?></a>",
          "<a/>trailing", "<1a/>", "<a>&amp</a>", "<a><!-- open </a>", "<a><![CDATA[ x</a>",
          // JUCE's reader looped on this one (found by fuzzing): "?" where a tag name goes.
          "<Preset><P></Pres?xml v=\"t\"?><d?>=\"v\" ngs></Preset>"})
        EXPECT_EQ (parse (malformed), nullptr) << malformed;

    KelfinerAudioProcessor processor;
    processor.setParameter (4, 0.75f);
    const auto state = vesk::test::stateOf (processor);
    // The settings record closes the state (its marker, then the text): it is replaced.
    juce::MemoryOutputStream marker;
    marker.writeInt64 (static_cast<juce::int64> (KelfinerAudioProcessor::settingsMarker));
    const auto at = std::search (static_cast<const char*> (state.getData()),
                                 static_cast<const char*> (state.getData()) + state.getSize(),
                                 static_cast<const char*> (marker.getData()),
                                 static_cast<const char*> (marker.getData()) + 8);
    const auto kept = static_cast<std::size_t> (at - static_cast<const char*> (state.getData()));
    ASSERT_LT (kept, state.getSize());
    const auto text = juce::String ("<ProductSettings><x \"") + juce::String (deep);
    juce::MemoryOutputStream hostile;
    hostile.write (state.getData(), kept);
    hostile.write (marker.getData(), 8);
    hostile.writeString (text);
    processor.setStateInformation (hostile.getData(), static_cast<int> (hostile.getDataSize()));
    EXPECT_NEAR (processor.getParameter (4), 0.75f, 1e-6f) << "the parameters still load";
}

// Well-formed documents come out as JUCE's own reader makes them: what our writers produce
// (the factory presets, a preset with filters, the settings record) and the usual XML around it.
TEST (UntrustedXml, ReadsWhatJuceReadsFromWellFormedDocuments)
{
    KelfinerAudioProcessor processor;
    processor.getEngine().setSourceFilter (vesk::test::ramp (1, 33), 48000.0);
    const auto file = juce::File::createTempFile (".xml");
    ASSERT_TRUE (processor.exportToPresetFile (file));
    juce::StringArray documents{file.loadFileAsString()};
    file.deleteFile();
    for (auto const& preset : juce::File (KELFINER_FACTORY_PRESETS)
                                  .findChildFiles (juce::File::findFiles, false, "*.xml"))
        documents.add (preset.loadFileAsString());
    documents.add (juce::String::fromUTF8 (
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- made by hand -->\n"
        "<Preset name='caf\xC3\xA9 &amp; \"bar\"'>\n  <a>text <!-- c --> more</a>"
        "<b><![CDATA[<raw>]]></b>\t<c x = \"1\" />\n</Preset>\n<!-- end -->\n"));
    ASSERT_GE (documents.size(), 7);
    for (auto const& document : documents)
    {
        const auto text = document.toStdString();
        const auto ours = parse (text);
        const auto juces = juce::parseXML (document);
        ASSERT_NE (ours, nullptr) << text.substr (0, 200);
        ASSERT_NE (juces, nullptr);
        EXPECT_TRUE (ours->isEquivalentTo (juces.get(), false)) << text.substr (0, 200);
        EXPECT_EQ (ours->toString(), juces->toString());
    }
    EXPECT_NE (parse ("\xEF\xBB\xBF<a/>"), nullptr) << "a byte-order mark is passed over";
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
