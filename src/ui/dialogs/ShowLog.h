#pragma once
// The log command of the window. Apart from the logs because it needs the desktop (Qt Gui).

#include <QString>

namespace ql {

// Opens "Quorlane.log" of the data folder with the desktop's default handler. False, and nothing
// done, when the file is not there; false with `failed` set to the line that tells the user when
// the desktop refused it.
bool Show_Log(QString& failed);

}  // namespace ql
