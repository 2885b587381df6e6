#pragma once

#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Host
{

class ServiceContract;

/// What a service offers on its websocket, as a document of AsyncAPI 2.6: the messages of both directions.
///
/// Threads: every operation from any thread.
class AsyncApiDocument
{
public:
    /// `authority`: where the service is reached, as "host:port".
    static Poco::JSON::Object::Ptr write(const ServiceContract& contract, const std::string& authority);
};

} // namespace Kesa::Host
