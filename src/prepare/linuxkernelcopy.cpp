#include "prepare/kernelcopy.h"

#include <cerrno>
#include <unistd.h>

namespace Tavrinox {

namespace {

// Large enough that the calls cost nothing, small enough that progress moves smoothly.
constexpr size_t kPieceSize = 8 * 1024 * 1024;

} // namespace

bool copyInKernel(QFile &input, QFile &output, const std::function<void(qint64 bytes)> &copied)
{
    loff_t inputOffset = input.pos();
    loff_t outputOffset = output.pos();
    const loff_t start = inputOffset;
    bool atEnd = false;
    // Between file systems (a local build onto a FUSE-mounted stick) the kernel answers EXDEV at once;
    // on a file system without the call, ENOSYS or EINVAL. A first answer of 0 may come from a file that
    // reports no size but holds data, so only reads can tell that it is empty.
    for (;;) {
        const ssize_t piece =
            ::copy_file_range(input.handle(), &inputOffset, output.handle(), &outputOffset, kPieceSize, 0);
        if (piece > 0) {
            copied(piece);
        } else if (piece < 0 && errno == EINTR) {
            continue;
        } else {
            atEnd = piece == 0 && inputOffset > start;
            break;
        }
    }
    if (atEnd)
        return true;
    input.seek(inputOffset);
    output.seek(outputOffset);
    return false;
}

bool createCopyTarget(QFile &output, QFile::Permissions permissions)
{
    return output.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered, permissions);
}

} // namespace Tavrinox
