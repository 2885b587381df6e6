#pragma once

#include "Entry.h"
#include "EntryReader.h"

#include <string>
#include <vector>

namespace Kesa::Registry
{

/// The file in which a registry keeps its entries over a restart. It is always whole: a new content is written beside
/// it, and takes its place in one step once it is on the disk. A lock on "<file>.lock" keeps other registries off.
///
/// Its first line tells what it is, its version, and length and checksum of the rest, in which each line is an entry.
///
/// Ownership: keeps the lock for its own lifetime.
/// Threads:   one at a time.
/// Errors:    Poco::Exception whose message names the file and says what is wrong with it. A file that cannot be read
///            as a whole is never touched.
class StateFile
{
public:
    /// Takes the lock. `path` may name a file that does not exist yet, in a directory that does.
    StateFile(const std::string& path, const EntryReader& reader);
    ~StateFile();
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    /// All that the file holds; nothing if it does not exist, which is then created.
    std::vector<EntryPtr> load();
    /// Replaces what the file holds. After an exception it holds what it held before.
    void save(const std::vector<EntryPtr>& entries);

private:
    std::vector<EntryPtr> parse(const std::string& content) const;
    std::vector<EntryPtr> parseEntries(const std::string& content, std::size_t position, std::size_t count) const;
    void takeLock();
    void writeFile(const std::string& beside, const std::string& content) const;
    void syncDirectory() const;

    const EntryReader m_reader;
    std::string m_path; ///< what a symbolic link points to
    int m_lock = -1;
};

} // namespace Kesa::Registry
