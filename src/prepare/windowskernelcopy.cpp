#include "prepare/kernelcopy.h"

namespace Tavrinox {

// Windows copies between two open files only within one volume's extents (ReFS block cloning), never from
// a build folder onto a USB stick; the caller's large reads and writes through the system cache run at
// the disk's speed there.
bool copyInKernel(QFile &, QFile &, const std::function<void(qint64 bytes)> &)
{
    return false;
}

// Permissions given at creation would become an access list on an NTFS drive; set afterwards, they only
// set or clear the read-only attribute, which a drive that keeps none may refuse without harm.
bool createCopyTarget(QFile &output, QFile::Permissions permissions)
{
    if (!output.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return false;
    output.setPermissions(permissions);
    return true;
}

} // namespace Tavrinox
