#pragma once

#include "Export.h"

#include <Poco/ErrorHandler.h>

namespace Kesa::Util
{

/// Logs exceptions that left a thread's run function. A peer that goes away is a normal event, so connections that were
/// reset or refused are kept out of the error log and away from the base handler. No state; any thread.
class KESA_API SimpleErrorHandler: public Poco::ErrorHandler
{
public:
    using Poco::ErrorHandler::exception;
    void exception(const Poco::Exception& exc) override;
};

} // namespace Kesa::Util
