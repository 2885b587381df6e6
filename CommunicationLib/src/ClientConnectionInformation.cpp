#include "ClientConnectionInformation.h"

namespace Kesa::Net
{

namespace
{

const char* nameOf(ClientData::ClientType type)
{
    switch (type)
    {
    case ClientData::InternalClient:
        return "internal client";
    case ClientData::InternalClientSuperuser:
        return "internal client with all rights";
    case ClientData::ProxyAppClient:
        return "proxy application";
    case ClientData::ContainerAppClient:
        return "container application";
    case ClientData::SystemExternalClient:
        return "external client";
    case ClientData::UnknownClient:
        break;
    }
    return "unknown client";
}

const char* nameOf(ConnectionState state)
{
    switch (state)
    {
    case SECURE_CONNECTING:
        return "secure connection in progress";
    case SECURE_ESTABLISHED:
        return "secure";
    case UNSECURE:
        break;
    }
    return "not secure";
}

} // namespace

bool ClientConnectionInformation::isInitialised() const
{
    return clientData.clientType != ClientData::UnknownClient && serverPort != 0;
}

bool ClientConnectionInformation::isSuperUser() const
{
    return clientData.clientType == ClientData::InternalClientSuperuser;
}

bool ClientConnectionInformation::isSystemInternal() const
{
    return clientData.clientType == ClientData::InternalClient || isSuperUser();
}

bool ClientConnectionInformation::isSystemExternal() const
{
    return clientData.clientType == ClientData::SystemExternalClient ||
           clientData.clientType == ClientData::UnknownClient;
}

bool ClientConnectionInformation::isWSLimited() const
{
    return !isSystemInternal();
}

std::string ClientConnectionInformation::toString() const
{
    std::string text = clientAddr.toString() + " to port " + std::to_string(serverPort) + ", " +
                       nameOf(connectionState) + ", " + nameOf(clientData.clientType);
    if (clientData.internalClientId != 0)
        text += " " + std::to_string(clientData.internalClientId);
    if (!username.empty())
        text += ", user " + username;
    if (!swid.empty())
        text += ", software " + swid;
    return text;
}

} // namespace Kesa::Net
