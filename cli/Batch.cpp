#include "Batch.h"

#include "CommandLine.h"

#include <cstdlib>
#include <sys/stat.h>

namespace
{
juce::File withExtension (juce::File const& file, juce::String const& extension)
{
    return file.getSiblingFile (file.getFileNameWithoutExtension() + extension);
}

/** Results keep the input's container where the tool writes one; anything else becomes WAV. */
juce::String outputExtension (juce::File const& input)
{
    return input.hasFileExtension ("wav;aif;aiff;flac") ? input.getFileExtension() : ".wav";
}
} // namespace

bool looksLikeAudioFile (juce::File const& file)
{
    return file.hasFileExtension ("wav;wave;aif;aiff;aifc;flac;ogg;oga;mp3");
}

std::vector<BatchItem> planBatch (std::vector<std::string> const& inputs, juce::File const& output,
                                  bool recursive, bool wantsPlot, bool wantsFilter,
                                  juce::String const& extension)
{
    std::vector<BatchItem> items;
    bool folderGiven = false;
    for (auto const& given : inputs)
    {
        const auto path = fileArgument (given);
        if (path.isDirectory())
        {
            folderGiven = true;
            auto found = path.findChildFiles (juce::File::findFiles, recursive, "*",
                                              juce::File::FollowSymlinks::noCycles);
            found.sort();
            std::size_t taken = 0;
            for (auto const& file : found)
                if (looksLikeAudioFile (file) && !file.getFileName().startsWithChar ('.'))
                {
                    const auto relative = file.getRelativePathFrom (path);
                    items.push_back (
                        {file,
                         juce::File::addTrailingSeparator (juce::String (given)) + relative,
                         output.getChildFile (relative),
                         {},
                         {}});
                    ++taken;
                }
            if (taken == 0)
                throw UsageError{given + " is a folder with no audio files"
                                 + (recursive ? std::string()
                                              : std::string (" (--recursive looks into its "
                                                             "sub-folders)"))};
        }
        else if (path.existsAsFile())
            items.push_back ({path, juce::String (given), {}, {}, {}});
        else
            throw UsageError{given + ": no such file or folder"};
    }

    const bool intoFolder = folderGiven || items.size() > 1 || output.isDirectory();
    for (auto& item : items)
    {
        if (intoFolder)
        {
            if (item.output == juce::File())
                item.output = output.getChildFile (item.input.getFileName());
            item.output = withExtension (
                item.output, extension.isNotEmpty() ? extension : outputExtension (item.input));
            if (wantsPlot)
                item.plot = withExtension (item.output, ".png");
            if (wantsFilter)
                item.filter = withExtension (item.output, ".filter");
        }
        else
        {
            if (extension.isNotEmpty() && !output.hasFileExtension (extension))
                throw UsageError{
                    "-o " + output.getFullPathName().toStdString()
                    + (output.getFileExtension().isEmpty()
                           ? " has no extension"
                           : " is a " + output.getFileExtension().substring (1).toStdString()
                                 + " file")
                    + ": with --format " + extension.substring (1).toStdString() + ", name it "
                    + output.getFileNameWithoutExtension().toStdString() + extension.toStdString()};
            item.output = output;
        }
    }
    return items;
}

namespace
{
/** Where a path leads, with every link in it followed: the real folder and the name in it (a
    file that does not exist yet has no identity of its own, but its folder does). */
juce::String resolved (juce::File const& file)
{
    char* real = ::realpath (file.getParentDirectory().getFullPathName().toRawUTF8(), nullptr);
    const juce::String folder = real != nullptr ? juce::String::fromUTF8 (real)
                                                : file.getParentDirectory().getFullPathName();
    std::free (real);
    return folder + "/" + file.getLinkedTarget().getFileName();
}
} // namespace

bool sameFile (juce::File const& a, juce::File const& b)
{
    // Two existing paths are one file when they lead to one inode, whatever links, folders
    // linked elsewhere, hard links or /proc/self paths lie between.
    struct stat first = {}, second = {};
    if (::stat (a.getFullPathName().toRawUTF8(), &first) == 0
        && ::stat (b.getFullPathName().toRawUTF8(), &second) == 0)
        return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
    return resolved (a) == resolved (b);
}

juce::String checkOutputs (juce::Array<juce::File> const& reads,
                           juce::Array<juce::File> const& writes, bool force)
{
    const auto same = [] (juce::File const& a, juce::File const& b) { return sameFile (a, b); };
    for (int i = 0; i < writes.size(); ++i)
    {
        for (auto const& read : reads)
            if (same (writes[i], read))
                return writes[i].getFullPathName()
                       + " is read by this run; it cannot also be an output";
        for (int j = 0; j < i; ++j)
            if (same (writes[i], writes[j]))
                return "two results would be written to " + writes[i].getFullPathName()
                       + "; nothing was written";
        if (!force && writes[i].exists())
            return "output exists (use --force to replace it): " + writes[i].getFullPathName();
    }
    return {};
}
