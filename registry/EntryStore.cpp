#include "EntryStore.h"

#include "StateFile.h"

#include <LogStream.h>

#include <Poco/Exception.h>

#include <new>
#include <unordered_set>

namespace Kesa::Registry
{

using Kesa::Util::FastMutex;
using Kesa::Util::ScopedLock;

namespace
{

const std::string LIST_BEGIN = "{\"data\":[";
const std::string LIST_END = "],\"status\":\"ok\"}";

/// `bytes`: how long the texts are together, as far as that is known.
template <class Iterator>
EntryStore::Text join(Iterator first, Iterator end, std::size_t bytes, std::size_t count)
{
    auto text = std::make_shared<std::string>();
    text->reserve(LIST_BEGIN.size() + bytes + count + LIST_END.size());
    *text += LIST_BEGIN;
    for (Iterator i = first; i != end; ++i)
    {
        if (i != first)
            *text += ',';
        *text += i->second->text;
    }
    *text += LIST_END;
    return text;
}

} // namespace

EntryStore::EntryStore() = default;

EntryStore::EntryStore(std::unique_ptr<StateFile> file): m_file(std::move(file))
{
    const Entries stored = m_file->load();
    ScopedLock<FastMutex> lock(m_mutex);
    for (const EntryPtr& entry: stored)
        insert(entry);
}

EntryStore::~EntryStore() = default;

void EntryStore::Size::add(const Entry& entry)
{
    ++entries;
    bytes += entry.text.size();
    parts += entry.parts;
}

void EntryStore::Size::remove(const Entry& entry)
{
    --entries;
    bytes -= entry.text.size();
    parts -= entry.parts;
}

bool EntryStore::Size::isTooLarge() const
{
    return entries > MAX_ENTRIES || bytes > MAX_BYTES || parts > MAX_PARTS;
}

// --- changing ---

EntryStore::Outcome EntryStore::add(const EntryPtr& entry)
{
    Batch batch;
    batch.changes.push_back({entry, {}});
    apply(batch);
    return batch.changes.front().outcome;
}

EntryStore::Outcome EntryStore::remove(const std::string& id, EntryPtr* removed)
{
    Batch batch;
    batch.changes.push_back({nullptr, id});
    apply(batch);
    if (removed)
        *removed = batch.changes.front().entry;
    return batch.changes.front().outcome;
}

EntryStore::Entries EntryStore::remove(const std::vector<std::string>& ids)
{
    Batch batch;
    for (const std::string& id: ids)
        batch.changes.push_back({nullptr, id});
    apply(batch);
    Entries removed;
    for (const Change& change: batch.changes)
        if (change.outcome == Outcome::Done)
            removed.push_back(change.entry);
    return removed;
}

void EntryStore::apply(Batch& batch)
{
    ScopedLock<FastMutex> lock(m_mutex);
    m_waiting.push_back(&batch);
    while (!batch.isDone)
    {
        if (m_isWriting)
            m_written.wait(m_mutex);
        else
            writeWaiting();
    }
}

/// Makes the changes of all who wait, on the thread of one of them. Whatever fails, each of them is told.
void EntryStore::writeWaiting()
{
    const std::vector<Batch*> batches = std::move(m_waiting);
    m_waiting.clear();
    bool hasEffect = true;
    std::exception_ptr failure;
    try
    {
        hasEffect = judge(batches);
        if (m_file && hasEffect)
            save(entriesAfter(batches));
    }
    catch (...) // the disk's, or for want of memory
    {
        failure = std::current_exception();
    }
    perform(batches, !failure);
    m_written.broadcast();
    if (hasEffect)
        tell(failure); // last: nobody waits any more should it raise
}

/// Decides each change as if those before it were made. True if there is anything to do.
bool EntryStore::judge(const std::vector<Batch*>& batches)
{
    bool hasEffect = false;
    Size size = m_size;
    std::unordered_set<std::string> removed;
    for (Batch* batch: batches)
        for (Change& change: batch->changes)
        {
            const bool isRemoval = !change.id.empty();
            const auto found = isRemoval ? m_byId.find(change.id) : m_byId.end();
            if (isRemoval && (found == m_byId.end() || !removed.insert(change.id).second))
                change.outcome = Outcome::Unknown;
            else if (isRemoval)
            {
                change.entry = found->second->second;
                size.remove(*change.entry);
            }
            else if (size.add(*change.entry); size.isTooLarge())
            {
                size.remove(*change.entry);
                change.outcome = Outcome::Full;
            }
            hasEffect = hasEffect || change.outcome == Outcome::Done;
        }
    return hasEffect;
}

EntryStore::Entries EntryStore::entriesAfter(const std::vector<Batch*>& batches) const
{
    std::unordered_set<std::string> removed;
    Entries after;
    after.reserve(m_entries.size() + batches.size());
    for (const Batch* batch: batches)
        for (const Change& change: batch->changes)
            if (change.outcome == Outcome::Done && !change.id.empty())
                removed.insert(change.id);
    for (const auto& [key, entry]: m_entries)
        if (removed.count(entry->id) == 0)
            after.push_back(entry);
    for (const Batch* batch: batches)
        for (const Change& change: batch->changes)
            if (change.outcome == Outcome::Done && change.id.empty())
                after.push_back(change.entry);
    return after;
}

/// Writes the file, with the mutex open meanwhile. Raises what the file raises.
void EntryStore::save(const Entries& entries)
{
    std::exception_ptr failure;
    m_isWriting = true;
    m_mutex.unlock();
    try
    {
        m_file->save(entries);
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    m_mutex.lock();
    m_isWriting = false;
    if (failure)
        std::rethrow_exception(failure);
}

void EntryStore::perform(const std::vector<Batch*>& batches, bool isSaved)
{
    for (Batch* batch: batches)
    {
        for (Change& change: batch->changes)
            if (change.outcome == Outcome::Done && !(isSaved && performOne(change)))
                change.outcome = Outcome::NotSaved;
        batch->isDone = true;
    }
}

/// False if there is no memory for it. The file, which holds it, agrees again after the next change.
bool EntryStore::performOne(const Change& change)
{
    try
    {
        if (change.id.empty())
            insert(change.entry);
        else
            erase(change.id);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}

/// Logs when changes begin to fail, and when they do no more; each refused client is told by its answer.
void EntryStore::tell(const std::exception_ptr& failure)
{
    if (m_isFailing == static_cast<bool>(failure))
        return;
    m_isFailing = !m_isFailing;
    if (!failure)
    {
        KESA_LOG_WARNING("The state can be saved again, and changes are taken.");
        return;
    }
    try
    {
        std::rethrow_exception(failure);
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR("Changes are refused because the state cannot be saved: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("Changes are refused because the state cannot be saved: " << e.what());
    }
}

void EntryStore::insert(const EntryPtr& entry)
{
    const auto place = m_entries.emplace(Key(entry->name, ++m_lastNumber), entry).first;
    try
    {
        m_byId.emplace(entry->id, place);
    }
    catch (...)
    {
        m_entries.erase(place);
        throw;
    }
    m_size.add(*entry);
    m_list = nullptr;
}

void EntryStore::erase(const std::string& id)
{
    const auto found = m_byId.find(id);
    m_size.remove(*found->second->second);
    m_entries.erase(found->second);
    m_byId.erase(found);
    m_list = nullptr;
}

// --- reading ---

EntryPtr EntryStore::find(const std::string& id) const
{
    ScopedLock<FastMutex> lock(m_mutex);
    const auto found = m_byId.find(id);
    return found == m_byId.end() ? nullptr : found->second->second;
}

EntryStore::Entries EntryStore::entries() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    Entries all;
    all.reserve(m_entries.size());
    for (const auto& [key, entry]: m_entries)
        all.push_back(entry);
    return all;
}

std::size_t EntryStore::size() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    return m_entries.size();
}

EntryStore::Text EntryStore::list() const
{
    ScopedLock<FastMutex> lock(m_mutex);
    if (!m_list)
        m_list = join(m_entries.begin(), m_entries.end(), m_size.bytes, m_size.entries);
    return m_list;
}

EntryStore::Text EntryStore::list(const std::string& name) const
{
    ScopedLock<FastMutex> lock(m_mutex);
    const auto first = m_entries.lower_bound(Key(name, 0));
    auto end = first;
    while (end != m_entries.end() && end->first.first == name)
        ++end;
    return join(first, end, 0, 0);
}

} // namespace Kesa::Registry
