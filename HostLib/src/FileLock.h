#pragma once

#include <string>

namespace Kesa::Host
{

/// Keeps a file to this one holder in all processes, by a lock file beside it that is gone afterwards. A process that
/// is killed leaves the lock file, but not the lock.
///
/// Errors:  the constructor raises Poco::FileException, naming the file, if somebody else holds it or the lock file
///          cannot be made.
/// Threads: build and destroy on any.
class FileLock
{
public:
    explicit FileLock(const std::string& file);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    bool acquire(const std::string& file);

    const std::string m_path; ///< of the lock file
    int m_descriptor = -1;
};

} // namespace Kesa::Host
