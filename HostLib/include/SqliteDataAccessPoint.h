#pragma once

#include "DocumentDataAccessPoint.h"

namespace Kesa::Host
{

/// A data store that keeps its elements in a file of SQLite as well. A change that was answered with success survives
/// the end of the process, a SIGKILL or a power failure: it is one transaction, written and synced before anybody sees
/// it. Elements of resources that are not declared any more stay in the file.
///
/// The file is created if there is none; its directory must exist. Beside it stand, while it is in use, `<file>-wal`,
/// which belongs to the file, and `<file>.lock`. Nobody else can open it meanwhile.
///
/// Errors:  the constructors raise, with the name of the file and what to do, Poco::DataFormatException for a file that
///          is damaged, written by another program or by a later version, which is left as it is, and
///          Poco::FileException for one that is in use or cannot be opened. Else as DocumentDataAccessPoint.
/// Threads: as DocumentDataAccessPoint.
class KESA_API SqliteDataAccessPoint: public DocumentDataAccessPoint
{
public:
    typedef Poco::SharedPtr<SqliteDataAccessPoint> Ptr;

    explicit SqliteDataAccessPoint(const std::string& file);
    SqliteDataAccessPoint(const std::string& file, const Limits& limits);
    ~SqliteDataAccessPoint() override;

protected:
    void writeInserted(const Address& address, const std::string& text) override;
    void writeUpdated(const Address& address, const std::string& text) override;
    void writeDeleted(const Address& address) override;
    std::vector<Document> readDocuments(const std::string& service, const std::string& resource) override;

private:
    struct Parts;
    const std::unique_ptr<Parts> m_parts;
};

} // namespace Kesa::Host
