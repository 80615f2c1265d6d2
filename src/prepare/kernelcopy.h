#pragma once

#include <QFile>

#include <functional>

namespace Tavrinox {

// Copies input to output, both open unbuffered, from their current positions inside the kernel, where the
// system can copy between two open files (copy_file_range on Linux), telling copied of each piece.
// True when the input's end was reached. False when the kernel copy cannot go on, before or after some
// bytes: both files are then positioned after what was copied, and the caller goes on through its own
// buffer, which also meets and names any read or write error.
bool copyInKernel(QFile &input, QFile &output, const std::function<void(qint64 bytes)> &copied);

// Creates output, which must not exist, for unbuffered writing, with the permissions a copy of a file with
// these ones gets: on Linux given at creation and narrowed by the process's umask, as cp gives them, so
// that no further call reaches the drive (on a FUSE-mounted stick each call is a round trip to its
// daemon); on Windows the read-only attribute is all that carries over.
bool createCopyTarget(QFile &output, QFile::Permissions permissions);

} // namespace Tavrinox
