#include "InMemoryDataAccessPoint.h"

namespace Kesa::Host
{

InMemoryDataAccessPoint::InMemoryDataAccessPoint(): InMemoryDataAccessPoint(Limits()) {}
InMemoryDataAccessPoint::InMemoryDataAccessPoint(const Limits& limits): DocumentDataAccessPoint(limits) {}
InMemoryDataAccessPoint::~InMemoryDataAccessPoint() = default;

// Nothing is kept anywhere else.
void InMemoryDataAccessPoint::writeInserted(const Address& /*address*/, const std::string& /*text*/) {}
void InMemoryDataAccessPoint::writeUpdated(const Address& /*address*/, const std::string& /*text*/) {}
void InMemoryDataAccessPoint::writeDeleted(const Address& /*address*/) {}

std::vector<DocumentDataAccessPoint::Document> InMemoryDataAccessPoint::readDocuments(const std::string& /*service*/,
                                                                                      const std::string& /*resource*/)
{
    return {};
}

} // namespace Kesa::Host
