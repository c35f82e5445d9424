#include "RegularFile.h"

#include <cerrno>
#include <cstring>
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

namespace
{
bool syncPath (const juce::String& path, int flags)
{
    const int descriptor = ::open (path.toRawUTF8(), flags | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = ::fsync (descriptor) == 0;
    return ::close (descriptor) == 0 && synced;
}

juce::String lastError() { return juce::String::fromUTF8 (std::strerror (errno)); }
} // namespace

bool writeWhole (const juce::File& file, const void* data, std::size_t size, juce::String* whyNot)
{
    const int descriptor =
        ::open (file.getFullPathName().toRawUTF8(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0)
        return refuse (whyNot, "cannot be written (" + lastError() + ")");
    std::size_t done = 0;
    bool ok = true;
    while (ok && done < size)
    {
        const auto put = ::write (descriptor, static_cast<const char*> (data) + done, size - done);
        if (put < 0 && errno == EINTR)
            continue;
        ok = put > 0;
        if (ok)
            done += static_cast<std::size_t> (put);
    }
    ok = ok && ::fsync (descriptor) == 0;
    if (!ok)
        refuse (whyNot, "could not be written whole (" + lastError() + "; disk full?)");
    if (::close (descriptor) != 0 && ok)
        ok = refuse (whyNot, "could not be written whole (" + lastError() + "; disk full?)");
    return ok;
}

bool moveIntoPlace (const juce::File& finished, const juce::File& place, bool replace,
                    juce::String* whyNot)
{
    const auto from = finished.getFullPathName(), to = place.getFullPathName();
    if (!syncPath (from, O_RDONLY))
        return refuse (whyNot, "could not be synced to the disk (" + lastError() + ")");
    if (replace)
    {
        if (::rename (from.toRawUTF8(), to.toRawUTF8()) != 0)
            return refuse (whyNot, "could not be replaced (" + lastError() + ")");
    }
    else
    {
        const juce::String appeared ("appeared while this run was writing it (another run?); "
                                     "nothing was replaced");
        // A link fails on a name that exists, where a rename would replace it.
        if (::link (from.toRawUTF8(), to.toRawUTF8()) == 0)
            ::unlink (from.toRawUTF8());
        else if (errno == EEXIST)
            return refuse (whyNot, appeared);
        else if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK)
            return refuse (whyNot, "could not be made (" + lastError() + ")");
        // A file system without hard links: the check and the rename, a moment apart.
        else if (place.exists())
            return refuse (whyNot, appeared);
        else if (::rename (from.toRawUTF8(), to.toRawUTF8()) != 0)
            return refuse (whyNot, "could not be made (" + lastError() + ")");
    }
    syncPath (place.getParentDirectory().getFullPathName(), O_RDONLY | O_DIRECTORY);
    return true;
}
} // namespace regularFile
