#pragma once

#include <string>

namespace Kesa::Client
{

/// Writes whole lines to a file descriptor, each at once and unbuffered, so that a reader behind a pipe sees every line
/// when it happens. A reader that went away is no error but the end of the output.
///
/// Ownership: borrows the descriptor. The process must ignore SIGPIPE.
/// Threads:   one at a time.
class LineOutput
{
public:
    explicit LineOutput(int descriptor): m_descriptor(descriptor) {}

    /// Writes `line` and a newline. Waits while the reader is slow; a signal ends the wait and the output. Raises
    /// Poco::WriteFileException where the bytes cannot be written for another reason, a full disk for one.
    void write(const std::string& line);
    /// False when nobody reads any more.
    bool isOpen() const { return m_open; }
    /// For poll() with no event asked for: an error event tells that the reader went away.
    int descriptor() const { return m_descriptor; }
    /// Called when poll() has told so.
    void setClosed() { m_open = false; }

private:
    const int m_descriptor;
    bool m_open = true;
};

} // namespace Kesa::Client
