#include "StateFile.h"

#include "EntryStore.h"
#include "RefusedRequest.h"

#include <LogStream.h>

#include <Poco/Checksum.h>
#include <Poco/Error.h>
#include <Poco/Exception.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace Kesa::Registry
{

namespace
{

const std::string MAGIC = "kesa-registry state ";
constexpr unsigned VERSION = 1;
constexpr std::size_t MAX_HEADER = 128;
/// The longest file that save() writes.
constexpr std::size_t MAX_FILE = MAX_HEADER + EntryStore::MAX_BYTES + EntryStore::MAX_ENTRIES;

struct Header
{
    unsigned version = 0;
    std::size_t entries = 0;
    std::size_t bytes = 0;
    Poco::UInt32 checksum = 0;
};

/// A descriptor that is closed at the end.
class Descriptor
{
public:
    Descriptor(const std::string& path, int flags): m_number(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return m_number; }

private:
    const int m_number;
};

[[noreturn]] void fail(const std::string& path, const std::string& what)
{
    throw Poco::FileException("The state file " + path + " " + what);
}

[[noreturn]] void failWithError(const std::string& path, const std::string& what)
{
    fail(path, what + ": " + Poco::Error::getMessage(errno));
}

Poco::UInt32 checksumOf(std::string_view text)
{
    Poco::Checksum checksum(Poco::Checksum::TYPE_CRC32);
    checksum.update(text.data(), static_cast<unsigned>(text.size()));
    return checksum.checksum();
}

std::string resolved(const std::string& path)
{
    std::error_code error;
    const auto target = std::filesystem::weakly_canonical(path, error);
    return error ? path : target.string();
}

std::string contentOf(const std::vector<EntryPtr>& entries)
{
    std::string body;
    for (const EntryPtr& entry: entries)
        body.append(entry->text).append("\n");
    char header[MAX_HEADER];
    std::snprintf(header, sizeof header, "%s%u entries %zu bytes %zu crc32 %08" PRIx32 "\n", MAGIC.c_str(), VERSION,
                  entries.size(), body.size(), checksumOf(body));
    return header + body;
}

void writeAll(int descriptor, std::string_view content, const std::string& path)
{
    while (!content.empty())
    {
        const ssize_t count = ::write(descriptor, content.data(), content.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            failWithError(path, "cannot be written");
        content.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string readAll(int descriptor, std::size_t size, const std::string& path)
{
    std::string content(size, '\0');
    for (std::size_t have = 0; have < size;)
    {
        const ssize_t count = ::read(descriptor, content.data() + have, size - have);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            failWithError(path, "cannot be read");
        have += static_cast<std::size_t>(count);
    }
    return content;
}

} // namespace

StateFile::StateFile(const std::string& path, const EntryReader& reader): m_reader(reader), m_path(resolved(path))
{
    takeLock();
}

StateFile::~StateFile()
{
    ::close(m_lock);
}

void StateFile::takeLock()
{
    const std::string lock = m_path + ".lock";
    m_lock = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_lock < 0)
        failWithError(m_path, "cannot be locked with " + lock);
    if (::flock(m_lock, LOCK_EX | LOCK_NB) == 0)
        return;
    const bool isTaken = errno == EWOULDBLOCK;
    ::close(m_lock);
    if (isTaken)
        fail(m_path, "is in use by another registry");
    failWithError(m_path, "cannot be locked with " + lock);
}

// --- reading ---

std::vector<EntryPtr> StateFile::load()
{
    const Descriptor file(m_path, O_RDONLY | O_NONBLOCK);
    if (file.number() < 0 && errno == ENOENT)
    {
        save({}); // whether it can be written shows now, not at the first registration
        return {};
    }
    struct stat status
    {
    };
    if (file.number() < 0 || ::fstat(file.number(), &status) != 0)
        failWithError(m_path, "cannot be opened");
    if (!S_ISREG(status.st_mode))
        fail(m_path, "is no regular file");
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > MAX_FILE)
        fail(m_path, "is larger than any that a registry writes; it was left as it is");
    return parse(readAll(file.number(), size, m_path));
}

std::vector<EntryPtr> StateFile::parse(const std::string& content) const
{
    const std::size_t lineEnd = content.find('\n');
    if (content.empty())
        fail(m_path, "is empty; remove it to begin without entries");
    if (content.compare(0, MAGIC.size(), MAGIC, 0, content.size()) != 0)
        fail(m_path, "was not written by a registry; it was left as it is");
    Header header;
    int end = 0;
    if (lineEnd == std::string::npos)
        fail(m_path, "ends in its first line; it was left as it is");
    const std::string line = content.substr(MAGIC.size(), lineEnd - MAGIC.size());
    if (std::sscanf(line.c_str(), "%u", &header.version) == 1 && header.version > VERSION)
        fail(m_path, "has the version " + std::to_string(header.version) + ", and this registry knows only version " +
                         std::to_string(VERSION) + "; it was left as it is");
    if (std::sscanf(line.c_str(), "%u entries %zu bytes %zu crc32 %8" SCNx32 "%n", &header.version, &header.entries,
                    &header.bytes, &header.checksum, &end) != 4 ||
        static_cast<std::size_t>(end) != line.size() || header.version != VERSION)
        fail(m_path, "has a damaged first line; it was left as it is");
    const std::string_view body = std::string_view(content).substr(lineEnd + 1);
    if (body.size() < header.bytes)
        fail(m_path, "is cut off: " + std::to_string(body.size()) + " of " + std::to_string(header.bytes) +
                         " bytes are there; it was left as it is");
    if (body.size() > header.bytes || checksumOf(body) != header.checksum)
        fail(m_path, "is damaged: length or checksum do not match; it was left as it is");
    return parseEntries(content, lineEnd + 1, header.entries);
}

std::vector<EntryPtr> StateFile::parseEntries(const std::string& content, std::size_t position, std::size_t count) const
{
    std::vector<EntryPtr> entries;
    std::unordered_set<std::string> ids;
    while (position < content.size())
    {
        const std::size_t end = std::min(content.find('\n', position), content.size());
        const std::string where = "holds an entry that cannot be used, in line " + std::to_string(entries.size() + 2);
        try
        {
            entries.push_back(m_reader.readStored(content.substr(position, end - position)));
        }
        catch (const RefusedRequest& e)
        {
            fail(m_path, where + ": " + e.what());
        }
        if (!ids.insert(entries.back()->id).second)
            fail(m_path, where + ": its id stands there twice");
        position = end + 1;
    }
    if (entries.size() != count)
        fail(m_path, "is damaged: the number of entries does not match; it was left as it is");
    return entries;
}

// --- writing ---

void StateFile::save(const std::vector<EntryPtr>& entries)
{
    const std::string content = contentOf(entries);
    const std::string beside = m_path + ".new"; // one that a killed registry left is written anew
    try
    {
        writeFile(beside, content);
        if (::rename(beside.c_str(), m_path.c_str()) != 0)
            failWithError(m_path, "cannot be replaced");
    }
    catch (const Poco::Exception&)
    {
        ::unlink(beside.c_str()); // half a file is of no use, and takes the room of a disk that may be full
        throw;
    }
    syncDirectory();
}

void StateFile::writeFile(const std::string& beside, const std::string& content) const
{
    const Descriptor file(beside, O_WRONLY | O_CREAT | O_TRUNC);
    if (file.number() < 0)
        failWithError(m_path, "cannot be written beside as " + beside);
    writeAll(file.number(), content, m_path);
    if (::fsync(file.number()) != 0)
        failWithError(m_path, "cannot be brought to the disk");
}

/// The new content is in place already, so that a failure is no reason to refuse the change: only a loss of power can
/// still bring the old content back.
void StateFile::syncDirectory() const
{
    const std::string path = std::filesystem::path(m_path).parent_path().string();
    const Descriptor directory(path.empty() ? "." : path, O_RDONLY | O_DIRECTORY);
    if (directory.number() < 0 || ::fsync(directory.number()) != 0)
        KESA_LOG_WARNING("The directory of the state file "
                         << m_path << " cannot be brought to the disk: " << Poco::Error::getMessage(errno));
}

} // namespace Kesa::Registry
