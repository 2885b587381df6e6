#pragma once

#include "DocumentDataAccessPoint.h"

namespace Kesa::Host
{

/// A data store that keeps its elements in memory only: they are gone with the object.
///
/// Threads: as DocumentDataAccessPoint.
class KESA_API InMemoryDataAccessPoint: public DocumentDataAccessPoint
{
public:
    typedef Poco::SharedPtr<InMemoryDataAccessPoint> Ptr;

    InMemoryDataAccessPoint();
    explicit InMemoryDataAccessPoint(const Limits& limits);
    ~InMemoryDataAccessPoint() override;

protected:
    void writeInserted(const Address& address, const std::string& text) override;
    void writeUpdated(const Address& address, const std::string& text) override;
    void writeDeleted(const Address& address) override;
    std::vector<Document> readDocuments(const std::string& service, const std::string& resource) override;
};

} // namespace Kesa::Host
