#pragma once

#include "Entry.h"

#include <Mutex.h>

#include <Poco/Condition.h>
#include <Poco/Types.h>

#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Kesa::Registry
{

class StateFile;

/// The entries that the registry holds, in memory and, if there is one, in a file. Both always agree: a change takes
/// effect once the file holds it. Changes that come while the file is being written wait, and are written together.
///
/// Ownership: owns the file; shares the entries.
/// Threads:   any, several at once. add() and remove() wait for the file, on the thread that called; the others never
/// do. Errors:    outcomes. Why the file could not be written is in the log.
class EntryStore
{
public:
    static constexpr std::size_t MAX_ENTRIES = 20000;
    /// Bytes of JSON over all entries: clients read lists of up to 16 MiB.
    static constexpr std::size_t MAX_BYTES = 15 * 1024 * 1024;
    /// Objects, arrays, members and elements over all entries: clients read lists of up to 500,000 of them.
    static constexpr std::size_t MAX_PARTS = 475000;

    enum class Outcome
    {
        Done,
        Unknown, ///< there is no entry with this id
        Full,    ///< there are too many entries, or they are too large together
        NotSaved ///< the file could not be written: nothing has changed
    };

    typedef std::shared_ptr<const std::string> Text;
    typedef std::vector<EntryPtr> Entries;

    /// Without a file.
    EntryStore();
    /// Begins with what the file holds.
    explicit EntryStore(std::unique_ptr<StateFile> file);
    ~EntryStore();
    EntryStore(const EntryStore&) = delete;
    EntryStore& operator=(const EntryStore&) = delete;

    Outcome add(const EntryPtr& entry);
    /// On Done the entry that went, if `removed` is given.
    Outcome remove(const std::string& id, EntryPtr* removed = nullptr);
    /// Removes all at once; those that are unknown are skipped. The entries that went: none if the file could not be
    /// written.
    Entries remove(const std::vector<std::string>& ids);

    /// Null if there is none.
    EntryPtr find(const std::string& id) const;
    /// All, sorted by name, those of one name by age.
    Entries entries() const;
    std::size_t size() const;

    /// The answer that lists all entries: `{"data":[...],"status":"ok"}`. Made once after a change, then shared.
    Text list() const;
    /// The same with the entries of one name.
    Text list(const std::string& name) const;

private:
    struct Change
    {
        EntryPtr entry; ///< to be added, or found for the removal
        std::string id; ///< of the entry to be removed; empty: add
        Outcome outcome = Outcome::Done;
    };
    /// Of several entries together.
    struct Size
    {
        std::size_t entries = 0;
        std::size_t bytes = 0; ///< of their texts
        std::size_t parts = 0;

        void add(const Entry& entry);
        void remove(const Entry& entry);
        bool isTooLarge() const;
    };
    struct Batch
    {
        std::vector<Change> changes;
        bool isDone = false;
    };
    typedef std::pair<std::string, Poco::UInt64> Key; ///< name and number, which rises with age
    typedef std::map<Key, EntryPtr> Map;

    void apply(Batch& batch);
    void writeWaiting() KESA_REQUIRES(m_mutex);
    bool judge(const std::vector<Batch*>& batches) KESA_REQUIRES(m_mutex);
    Entries entriesAfter(const std::vector<Batch*>& batches) const KESA_REQUIRES(m_mutex);
    void save(const Entries& entries) KESA_REQUIRES(m_mutex);
    void perform(const std::vector<Batch*>& batches, bool isSaved) KESA_REQUIRES(m_mutex);
    bool performOne(const Change& change) KESA_REQUIRES(m_mutex);
    void tell(const std::exception_ptr& failure) KESA_REQUIRES(m_mutex);
    void insert(const EntryPtr& entry) KESA_REQUIRES(m_mutex);
    void erase(const std::string& id) KESA_REQUIRES(m_mutex);

    const std::unique_ptr<StateFile> m_file; ///< used by one thread at a time: the one that set m_isWriting
    mutable Kesa::Util::FastMutex m_mutex;   ///< guards all below; not held while the file is written
    Poco::Condition m_written;               ///< signalled when a batch is done
    bool m_isWriting KESA_GUARDED_BY(m_mutex) = false;
    std::vector<Batch*> m_waiting KESA_GUARDED_BY(m_mutex); ///< each lives on the stack of the thread that waits for it
    Map m_entries KESA_GUARDED_BY(m_mutex);
    std::unordered_map<std::string, Map::iterator> m_byId KESA_GUARDED_BY(m_mutex);
    Poco::UInt64 m_lastNumber KESA_GUARDED_BY(m_mutex) = 0;
    Size m_size KESA_GUARDED_BY(m_mutex);
    bool m_isFailing KESA_GUARDED_BY(m_mutex) = false; ///< the last changes could not be made
    mutable Text m_list KESA_GUARDED_BY(m_mutex);      ///< null after a change
};

} // namespace Kesa::Registry
