#include "platform/devicemanager.h"

namespace Tavrinox::Platform {

DeviceManager::~DeviceManager() = default;

} // namespace Tavrinox::Platform
