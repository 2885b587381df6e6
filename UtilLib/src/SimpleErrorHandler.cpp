#include "SimpleErrorHandler.h"

#include "LogStream.h"

#include <Poco/Net/NetException.h>

namespace Kesa::Util
{

void SimpleErrorHandler::exception(const Poco::Exception& exc)
{
    if (dynamic_cast<const Poco::Net::ConnectionResetException*>(&exc))
    {
        KESA_LOG_DEBUG("ConnectionResetException: " << exc.displayText());
        return;
    }
    if (dynamic_cast<const Poco::Net::ConnectionRefusedException*>(&exc))
    {
        KESA_LOG_DEBUG("ConnectionRefusedException: " << exc.displayText());
        return;
    }
    KESA_LOG_ERROR("SimpleErrorHandler caught " << exc.displayText());
    Poco::ErrorHandler::exception(exc);
}

} // namespace Kesa::Util
