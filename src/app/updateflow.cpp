#include "app/configwindow.h"

namespace Tavrinox {

void ConfigWindow::updateSelectedDevice()
{
}

} // namespace Tavrinox
