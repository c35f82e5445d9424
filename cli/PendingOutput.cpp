#include "PendingOutput.h"

namespace
{
juce::AudioFormat* formatFor (juce::AudioFormatManager& formats, juce::File const& file)
{
    for (auto* format : formats)
        if (format->canHandleFile (file) && format->canDoStereo())
            return format;
    return nullptr;
}
} // namespace

bool openOutput (juce::File const& output, JobSettings const& settings,
                 juce::AudioFormatReader const& reader, PendingOutput& pending, juce::String& error)
{
    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    auto* format = formatFor (formats, output);
    if (format == nullptr || output.hasFileExtension ("ogg;oga;mp3"))
    {
        error = "cannot write this kind of file (use .wav, .aiff or .flac): "
                + output.getFullPathName();
        return false;
    }
    if (output.exists() && !settings.force)
    {
        error = "output exists (use --force to replace it): " + output.getFullPathName();
        return false;
    }
    const auto depths = format->getPossibleBitDepths();
    int bits = settings.bits.value_or (static_cast<int> (reader.bitsPerSample));
    if (settings.bits && !depths.contains (bits))
    {
        error = juce::String (bits) + "-bit samples cannot be written as " + format->getFormatName()
                + ": " + output.getFullPathName();
        return false;
    }
    if (!depths.contains (bits))
        bits = depths.contains (24) ? 24 : depths.getLast();

    pending.temporary = std::make_unique<juce::TemporaryFile> (output);
    pending.cleanup = std::make_unique<InterruptCleanup> (pending.temporary->getFile());
    auto stream = std::make_unique<juce::FileOutputStream> (pending.temporary->getFile());
    if (!stream->openedOk())
    {
        error = "cannot write beside " + output.getFullPathName();
        return false;
    }
    pending.writer.reset (
        format->createWriterFor (stream.get(), reader.sampleRate, reader.numChannels, bits, {}, 0));
    if (pending.writer == nullptr)
    {
        error = "cannot write this format at this rate and depth: " + output.getFullPathName();
        return false;
    }
    stream.release(); // the writer owns it now
    pending.bits = bits;
    return true;
}
