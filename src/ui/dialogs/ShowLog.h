#pragma once
// The log command of the window. Apart from the logs because it needs the desktop (Qt Gui).

namespace ql {

// Opens "Quorlane.log" of the data folder with the desktop's default handler; false, and
// nothing done, when the file is not there.
bool Show_Log();

}  // namespace ql
