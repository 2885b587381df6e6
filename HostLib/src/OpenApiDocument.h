#pragma once

#include <Poco/JSON/Object.h>

namespace Kesa::Host
{

class ServiceContract;

/// What a service offers over HTTP, as a document of OpenAPI 3.1: every URL, method, parameter and answer.
///
/// Threads: every operation from any thread.
class OpenApiDocument
{
public:
    static Poco::JSON::Object::Ptr write(const ServiceContract& contract);
};

} // namespace Kesa::Host
