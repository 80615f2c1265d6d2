#include "app/configwindow.h"

namespace Tavrinox {

void ConfigWindow::recycleWorkspace()
{
}

} // namespace Tavrinox
