#include "EntryStore.h"

#include "StateFile.h"

#include <LogStream.h>

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

/// Makes the changes of all who wait, on the thread of one of them.
void EntryStore::writeWaiting()
{
    const std::vector<Batch*> batches = std::move(m_waiting);
    m_waiting.clear();
    const bool hasEffect = judge(batches);
    bool isSaved = true;
    if (m_file && hasEffect)
    {
        const Entries after = entriesAfter(batches);
        m_isWriting = true;
        m_mutex.unlock();
        isSaved = save(after);
        m_mutex.lock();
        m_isWriting = false;
    }
    perform(batches, isSaved);
    m_written.broadcast();
}

/// Decides each change as if those before it were made. True if there is anything to do.
bool EntryStore::judge(const std::vector<Batch*>& batches)
{
    bool hasEffect = false;
    std::size_t count = m_entries.size();
    std::size_t bytes = m_bytes;
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
                --count;
                bytes -= change.entry->text.size();
            }
            else if (count >= MAX_ENTRIES || bytes + change.entry->text.size() > MAX_BYTES)
                change.outcome = Outcome::Full;
            else
            {
                ++count;
                bytes += change.entry->text.size();
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

bool EntryStore::save(const Entries& entries) const
{
    try
    {
        m_file->save(entries);
        return true;
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR("A change was refused because the state could not be saved: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("A change was refused because the state could not be saved: " << e.what());
    }
    return false;
}

void EntryStore::perform(const std::vector<Batch*>& batches, bool isSaved)
{
    for (Batch* batch: batches)
    {
        for (Change& change: batch->changes)
        {
            if (change.outcome != Outcome::Done)
                continue;
            if (!isSaved)
                change.outcome = Outcome::NotSaved;
            else if (change.id.empty())
                insert(change.entry);
            else
                erase(change.id);
        }
        batch->isDone = true;
    }
}

void EntryStore::insert(const EntryPtr& entry)
{
    const auto [place, isNew] = m_entries.emplace(Key(entry->name, ++m_lastNumber), entry);
    m_byId.emplace(entry->id, place);
    m_bytes += entry->text.size();
    m_list = nullptr;
}

void EntryStore::erase(const std::string& id)
{
    const auto found = m_byId.find(id);
    m_bytes -= found->second->second->text.size();
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
        m_list = join(m_entries.begin(), m_entries.end(), m_bytes, m_entries.size());
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
