// Feeds lists as a registry sends them to the reader. Whatever it takes for an entry is the same entry when it is
// written and read again.

#include <Data/MicroServiceInfo.h>
#include <Log.h>
#include <ServiceRegistry.h>

#include <Poco/Exception.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>

using Kesa::MicroServiceInfo;

namespace
{

/// Ends the process, which the fuzzer takes for a finding.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

std::string textOf(const MicroServiceInfo& entry)
{
    std::ostringstream text;
    entry.toJSON(0)->stringify(text, 0, -1);
    return text.str();
}

void requireThatItComesBack(const MicroServiceInfo& entry)
{
    const std::unique_ptr<MicroServiceInfo> again(MicroServiceInfo::FromJson(entry.toJSON(0)));
    require(again && *again == entry && textOf(*again) == textOf(entry));
    require(!entry.getAllPorts().empty() && again->getApiVersions() == entry.getApiVersions());
    require(!entry.hasValue("id") || again->getIdString() == entry.getIdString());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    Logging::Log::SetLogLevel(Poco::Message::PRIO_FATAL, "");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<MicroServiceInfo> entries;
    try
    {
        Kesa::extractMicroServiceInfosFromResponse(entries, stream);
    }
    catch (const Poco::DataException&) // too long, or of too many parts
    {
    }
    for (const MicroServiceInfo& entry: entries)
        requireThatItComesBack(entry);
    return 0;
}
