#include "SqliteDataAccessPoint.h"

#include "SqliteFile.h"

#include <map>

namespace Kesa::Host
{

/// Used by one change or declaration at a time, so that there is nothing to guard.
struct SqliteDataAccessPoint::Parts
{
    explicit Parts(const std::string& path): file(path)
    {
        for (SqliteFile::Row& row: file.takeRows())
            documents[{row.service, row.resource}].push_back({row.id, std::move(row.text)});
    }

    SqliteFile file;
    /// What the file held at first, by service and resource, until that resource is declared.
    std::map<std::pair<std::string, std::string>, std::vector<Document>> documents;
};

SqliteDataAccessPoint::SqliteDataAccessPoint(const std::string& file): SqliteDataAccessPoint(file, Limits()) {}

SqliteDataAccessPoint::SqliteDataAccessPoint(const std::string& file, const Limits& limits)
    : DocumentDataAccessPoint(limits), m_parts(std::make_unique<Parts>(file))
{
}

SqliteDataAccessPoint::~SqliteDataAccessPoint() = default;

void SqliteDataAccessPoint::writeInserted(const Address& address, const std::string& text)
{
    m_parts->file.insert({address.service, address.resource, address.id, text});
}

void SqliteDataAccessPoint::writeUpdated(const Address& address, const std::string& text)
{
    m_parts->file.update({address.service, address.resource, address.id, text});
}

void SqliteDataAccessPoint::writeDeleted(const Address& address)
{
    m_parts->file.remove({address.service, address.resource, address.id, std::string()});
}

std::vector<DocumentDataAccessPoint::Document> SqliteDataAccessPoint::readDocuments(const std::string& service,
                                                                                    const std::string& resource)
{
    const auto found = m_parts->documents.extract({service, resource});
    return found.empty() ? std::vector<Document>() : std::move(found.mapped());
}

} // namespace Kesa::Host
