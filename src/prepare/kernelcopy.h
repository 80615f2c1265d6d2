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

} // namespace Tavrinox
