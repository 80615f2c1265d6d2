#pragma once

#include <QString>

namespace Tavrinox {

// Whether an extracted package holds both bundles under "Tavrinox/": the first missing required entry
// is named, with its full path under extractedDir.
bool validatePackageLayout(const QString &extractedDir, QString *error = nullptr);

} // namespace Tavrinox
