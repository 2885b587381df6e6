#include "SqliteFile.h"

#include <Poco/Checksum.h>
#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/SQLite/SQLiteException.h>
#include <Poco/Data/SQLite/Utility.h>
#include <Poco/Error.h>
#include <Poco/Exception.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sqlite3.h>
#include <unistd.h>

namespace Kesa::Host
{

using namespace Poco::Data::Keywords;
using Poco::Data::Session;

namespace
{
const Poco::UInt32 APPLICATION_ID = 0x4B455341; ///< "KESA", in the head of every file of this class
const Poco::UInt32 VERSION = 1;                 ///< of the tables
const std::string MAGIC("SQLite format 3\0", 16);

[[noreturn]] void refuse(const std::string& path, const std::string& reason)
{
    throw Poco::DataFormatException("The file " + path + " is no store that can be used: " + reason +
                                    ". It is left as it is; name another file, or move it away to begin a new one");
}

[[noreturn]] void failWithErrno(const std::string& what)
{
    throw Poco::FileException(what + ": " + Poco::Error::getMessage(errno));
}

Session connect(const std::string& path)
{
    static std::once_flag once;
    std::call_once(once, [] { Poco::Data::SQLite::Connector::registerConnector(); });
    return Session("SQLite", path);
}

void syncDirectory(const std::string& path)
{
    const std::string directory = std::filesystem::path(path).parent_path().string();
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isSynced = descriptor >= 0 && ::fsync(descriptor) == 0;
    const std::string reason = Poco::Error::getMessage(errno);
    if (descriptor >= 0)
        ::close(descriptor);
    if (!isSynced)
        throw Poco::FileException("The directory " + directory + " of a new store cannot be synced: " + reason);
}

/// Makes a new file under another name first, so that a file of the right name is whole, and an empty one damaged.
void create(const std::string& path)
{
    const std::string draft = path + ".new";
    for (const std::string& left: {draft, draft + "-journal"})
        ::unlink(left.c_str());
    Session session = connect(draft);
    session.begin();
    session << "PRAGMA application_id = " << APPLICATION_ID, now;
    session << "PRAGMA user_version = " << VERSION, now;
    session << "CREATE TABLE elements (number INTEGER PRIMARY KEY, service TEXT NOT NULL, resource TEXT NOT NULL, "
               "id TEXT NOT NULL, document TEXT NOT NULL, checksum INTEGER NOT NULL, "
               "UNIQUE (service, resource, id))",
        now;
    session.commit();
    session.close();
    if (::rename(draft.c_str(), path.c_str()) != 0)
        failWithErrno("The new store " + path + " cannot be put in its place");
    syncDirectory(path);
}

Poco::UInt32 bigEndian(const char* bytes)
{
    Poco::UInt32 number = 0;
    for (int i = 0; i < 4; ++i)
        number = (number << 8) | static_cast<unsigned char>(bytes[i]);
    return number;
}

/// Looks at the first bytes without SQLite, which repairs what it takes for its own.
void checkHead(const std::string& path)
{
    if (!std::filesystem::is_regular_file(path))
        refuse(path, "it is no regular file");
    std::array<char, 100> head{};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        failWithErrno("The store " + path + " cannot be opened");
    file.read(head.data(), head.size());
    if (::access(path.c_str(), W_OK) != 0)
        failWithErrno("The store " + path + " cannot be written");
    if (file.gcount() == 0)
        refuse(path, "it is empty");
    if (std::string(head.data(), MAGIC.size()) != MAGIC || file.gcount() < std::streamsize(head.size()))
        refuse(path, "it does not begin as a file of SQLite does");
    if (bigEndian(&head[68]) != APPLICATION_ID)
        refuse(path, "it is a file of SQLite that another program wrote");
    if (bigEndian(&head[60]) != VERSION)
        refuse(path, "its version is " + std::to_string(bigEndian(&head[60])) + ", this program knows version " +
                         std::to_string(VERSION));
}

/// Whether closing the connection may write the log into the file.
void setMerging(Session& session, bool isWanted)
{
    ::sqlite3_db_config(Poco::Data::SQLite::Utility::dbHandle(session), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE,
                        isWanted ? 0 : 1, nullptr);
}

/// A connection to the file. What its log holds stays there until it is known that the file is sound.
Session begin(const std::string& path)
{
    if (std::filesystem::exists(path))
        checkHead(path);
    else if (std::filesystem::exists(path + "-wal"))
        refuse(path, "it is gone, but its log " + path + "-wal is there");
    else
        create(path);
    Session session = connect(path);
    std::error_code isMissing;
    if (std::filesystem::file_size(path + "-wal", isMissing) > 0 && !isMissing)
        setMerging(session, false);
    return session;
}

Poco::UInt32 checksumOf(const SqliteFile::Row& row)
{
    Poco::Checksum checksum(Poco::Checksum::TYPE_CRC32);
    for (const std::string* part: {&row.service, &row.resource, &row.id, &row.text})
        checksum.update(part->c_str(), static_cast<unsigned>(part->size() + 1)); // the zero separates the parts
    return checksum.checksum();
}
} // namespace

SqliteFile::SqliteFile(const std::string& path)
try : m_path(std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string()), m_lock(m_path),
    m_session(begin(m_path))
{
    readAll();
    beginToWrite();
}
catch (const Poco::Data::SQLite::DBLockedException&)
{
    throw Poco::FileException("The store " + path + " is in use by another program");
}
catch (const Poco::Data::DataException& e)
{
    refuse(path, "SQLite cannot read it, " + e.displayText());
}
catch (const std::filesystem::filesystem_error& e)
{
    throw Poco::FileException("The store " + path + " cannot be opened: " + e.what());
}

SqliteFile::~SqliteFile() = default;

void SqliteFile::readAll()
{
    m_session << "PRAGMA busy_timeout = 0", now;
    m_session << "PRAGMA locking_mode = EXCLUSIVE", now;
    std::string verdict;
    m_session << "PRAGMA integrity_check(1)", into(verdict), now;
    if (verdict != "ok")
        refuse(m_path, "it is damaged, " + verdict);
    std::vector<std::string> services, resources, ids, texts;
    std::vector<Poco::UInt32> checksums;
    m_session << "SELECT service, resource, id, document, checksum FROM elements ORDER BY number", into(services),
        into(resources), into(ids), into(texts), into(checksums), now;
    for (std::size_t i = 0; i < ids.size(); ++i)
    {
        m_rows.push_back({services[i], resources[i], ids[i], std::move(texts[i])});
        if (checksumOf(m_rows.back()) != checksums[i])
            refuse(m_path, "it is damaged, the checksum of the element " + ids[i] + " is wrong");
    }
}

void SqliteFile::beginToWrite()
{
    // A log that is synced at every commit: what was committed outlives the process and the power.
    m_session << "PRAGMA journal_mode = WAL", now;
    m_session << "PRAGMA synchronous = FULL", now;
    setMerging(m_session, true);
}

void SqliteFile::insert(const Row& row)
{
    m_session << "INSERT INTO elements (service, resource, id, document, checksum) VALUES (?, ?, ?, ?, ?)",
        bind(row.service), bind(row.resource), bind(row.id), bind(row.text), bind(checksumOf(row)), now;
}

void SqliteFile::update(const Row& row)
{
    m_session << "UPDATE elements SET document = ?, checksum = ? WHERE service = ? AND resource = ? AND id = ?",
        bind(row.text), bind(checksumOf(row)), bind(row.service), bind(row.resource), bind(row.id), now;
}

void SqliteFile::remove(const Row& row)
{
    m_session << "DELETE FROM elements WHERE service = ? AND resource = ? AND id = ?", bind(row.service),
        bind(row.resource), bind(row.id), now;
}

} // namespace Kesa::Host
