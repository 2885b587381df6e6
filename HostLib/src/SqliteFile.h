#pragma once

#include "FileLock.h"

#include <Poco/Data/Session.h>

#include <string>
#include <vector>

namespace Kesa::Host
{

/// A file of SQLite with the documents of a store, in the order in which they were inserted. When an operation has
/// returned, what it wrote survives the end of the process, however it comes, and of the machine: every one is a
/// transaction whose log is synced to the disk.
///
/// A file that this class did not write, that is damaged or that a later version wrote is refused before anything is
/// written to it. SQLite's own lock keeps other programs off it.
///
/// Errors:  the constructor raises Poco::DataFormatException for a file that is refused, else Poco::FileException, both
///          with its name. What the other operations raise is a Poco::Exception; nothing was written then.
/// Threads: one at a time.
class SqliteFile
{
public:
    struct Row
    {
        std::string service;
        std::string resource;
        std::string id;
        std::string text;
    };

    /// Creates the file if there is none.
    explicit SqliteFile(const std::string& path);
    ~SqliteFile();
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;

    const std::string& path() const { return m_path; }
    /// All that was in the file when it was opened; the caller has it from then on.
    std::vector<Row> takeRows() { return std::move(m_rows); }

    void insert(const Row& row);
    void update(const Row& row);
    void remove(const Row& row);

private:
    void readAll();
    void beginToWrite();

    const std::string m_path;
    const FileLock m_lock;
    Poco::Data::Session m_session;
    std::vector<Row> m_rows;
};

} // namespace Kesa::Host
