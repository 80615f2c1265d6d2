#include "app/configwindow.h"

namespace Tavrinox {

void ConfigWindow::prepareSelectedDevice()
{
}

} // namespace Tavrinox
