#include "LibraryThread.h"

namespace Kesa::Util
{

namespace
{
thread_local int t_depth = 0;
}

LibraryThread::LibraryThread()
{
    ++t_depth;
}

LibraryThread::~LibraryThread()
{
    --t_depth;
}

bool LibraryThread::isCurrent()
{
    return t_depth > 0;
}

} // namespace Kesa::Util
