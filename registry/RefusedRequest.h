#pragma once

#include <stdexcept>
#include <string>

namespace Kesa::Registry
{

/// A request that is answered with an error document.
class RefusedRequest: public std::runtime_error
{
public:
    /// `status`: of HTTP, 400 to 599. `message`: what was wrong, for the client to read.
    RefusedRequest(int status, const std::string& message): std::runtime_error(message), m_status(status) {}

    int status() const { return m_status; }

private:
    int m_status;
};

} // namespace Kesa::Registry
