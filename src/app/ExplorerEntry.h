#pragma once
// The file-manager entry: a desktop entry for folders (MimeType inode/directory) that starts the
// program on the folder it was offered, so that file managers list Quorlane among the programs
// that open a folder. It lives in the user's applications folder and is written or removed by the
// options dialog and at the first start; nothing else touches it.
//
// User-interface thread (it may start update-desktop-database and wait for it briefly).

#include <QString>

namespace ql {

inline constexpr char kFolderEntryName[] = "quorlane-folder.desktop";

// $XDG_DATA_HOME/applications, else ~/.local/share/applications.
QString userApplicationsFolder();
// The entry's file in that folder.
QString folderEntryPath();

// One argument of an Exec line: bare when it holds nothing special, else in double quotes with
// `"`, `` ` ``, `$` and `\` escaped; "%" becomes "%%" either way. Empty when the argument cannot
// stand in a desktop entry at all (an empty text or a control character such as a line break).
QString desktopExecArgument(const QString& argument);
// A value of a desktop entry as written in the file: backslashes doubled.
QString desktopValue(const QString& value);

// The whole entry for `program` (an absolute path); empty when the path cannot be written.
QString folderEntryText(const QString& program);

// Value 1 writes the entry for `program` (the running executable when empty) into `folder`
// (userApplicationsFolder() when empty); any other value removes it, which is harmless when it is
// not there. Afterwards update-desktop-database runs on the folder when it is installed. A
// failure goes to the debug log and false comes back; the caller carries on either way.
bool SetExplorerEntry(int value, const QString& program = QString(), const QString& folder = QString());

}  // namespace ql
