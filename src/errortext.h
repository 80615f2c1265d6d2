#pragma once

#include <QString>

namespace Tavrinox {

// Failures are values: a function writes its message only where the caller asked for one.
inline void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

} // namespace Tavrinox
