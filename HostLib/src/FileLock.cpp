#include "FileLock.h"

#include <Poco/Error.h>
#include <Poco/Exception.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kesa::Host
{

FileLock::FileLock(const std::string& file): m_path(file + ".lock")
{
    while (!acquire(file))
        ::close(m_descriptor);
}

FileLock::~FileLock()
{
    ::unlink(m_path.c_str()); // while it is held, so that nobody can have begun to hold it
    ::close(m_descriptor);
}

/// False if the lock file was removed by its last holder just when it was opened here.
bool FileLock::acquire(const std::string& file)
{
    m_descriptor = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_descriptor < 0)
        throw Poco::FileException("No lock on " + file + " can be had, " + m_path +
                                  " cannot be opened: " + Poco::Error::getMessage(errno));
    if (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0)
    {
        ::close(m_descriptor);
        throw Poco::FileException("The file " + file + " is in use already, by this process or another one");
    }
    struct stat held = {};
    struct stat present = {};
    return ::fstat(m_descriptor, &held) == 0 && ::stat(m_path.c_str(), &present) == 0 &&
           held.st_ino == present.st_ino && held.st_dev == present.st_dev;
}

} // namespace Kesa::Host
