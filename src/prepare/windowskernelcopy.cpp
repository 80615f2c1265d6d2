#include "prepare/kernelcopy.h"

namespace Tavrinox {

// Windows copies between two open files only within one volume's extents (ReFS block cloning), never from
// a build folder onto a USB stick; the caller's large reads and writes through the system cache run at
// the disk's speed there.
bool copyInKernel(QFile &, QFile &, const std::function<void(qint64 bytes)> &)
{
    return false;
}

} // namespace Tavrinox
