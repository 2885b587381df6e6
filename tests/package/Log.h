#pragma once

#include <string>

/// The stranger's own log, which has nothing to do with the library's.
namespace Stranger
{
void log(const std::string& text);
}
