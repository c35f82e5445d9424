#include "RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace regularFile
{
namespace
{
juce::String describe (const struct stat& status)
{
    if (S_ISDIR (status.st_mode))
        return "is a directory";
    return "is not a regular file (a FIFO, a device or a socket)";
}

bool refuse (juce::String* whyNot, const juce::String& reason)
{
    if (whyNot != nullptr)
        *whyNot = reason;
    return false;
}
} // namespace

bool check (const juce::File& file, juce::String* whyNot)
{
    struct stat status = {};
    if (::stat (file.getFullPathName().toRawUTF8(), &status) != 0)
        return refuse (whyNot, errno == ENOENT ? "does not exist" : "cannot be read");
    if (!S_ISREG (status.st_mode))
        return refuse (whyNot, describe (status));
    return true;
}

bool read (const juce::File& file, std::size_t maximumBytes, juce::MemoryBlock& data,
           juce::String* whyNot)
{
    data.reset();
    if (!check (file, whyNot))
        return false;
    // Not blocking: should the path have become a FIFO since the check, opening returns at once.
    const int descriptor =
        ::open (file.getFullPathName().toRawUTF8(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return refuse (whyNot, "cannot be read");
    struct stat status = {};
    bool ok = ::fstat (descriptor, &status) == 0 && S_ISREG (status.st_mode);
    if (!ok)
        refuse (whyNot, describe (status));
    else if (static_cast<std::uint64_t> (status.st_size) > maximumBytes)
        ok = refuse (whyNot, "is larger than " + juce::String (maximumBytes) + " bytes");
    if (ok)
    {
        // One byte more than allowed tells a file that grew since fstat from one that did not.
        data.setSize (maximumBytes + 1);
        std::size_t total = 0;
        while (total <= maximumBytes)
        {
            const auto got = ::read (descriptor, static_cast<char*> (data.getData()) + total,
                                     maximumBytes + 1 - total);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
            {
                ok = got == 0 || refuse (whyNot, "cannot be read");
                break;
            }
            total += static_cast<std::size_t> (got);
        }
        if (ok && total > maximumBytes)
            ok = refuse (whyNot, "is larger than " + juce::String (maximumBytes) + " bytes");
        data.setSize (ok ? total : 0);
    }
    ::close (descriptor);
    return ok;
}
} // namespace regularFile
